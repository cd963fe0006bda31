#ifndef ZORVEL_PYTHON_STATE_HPP
#define ZORVEL_PYTHON_STATE_HPP

#include "playback/playback.hpp"

namespace zorvel::python {

/// A state as it was after a cycle, which later cycles leave as it is.
struct State : StateRow {
  bool isWatched = false;
};

}  // namespace zorvel::python

#endif
