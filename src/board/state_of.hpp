#ifndef ZV_BOARD_STATE_OF_HPP
#define ZV_BOARD_STATE_OF_HPP

#include "zv/state_board.hpp"

namespace ZV {

class PersonState;

/// What a frame says of a person. The caller sees to it that nobody updates the state meanwhile.
StateFrame::State stateOf(std::int32_t id, const PersonState& person);

}  // namespace ZV

#endif
