#ifndef ZORVEL_PYTHON_VALUE_CLASS_HPP
#define ZORVEL_PYTHON_VALUE_CLASS_HPP

#include "pybind.hpp"

namespace zorvel::python {

/// Makes the objects of a class comparable: `plain` gives all that one holds.
template <typename Class, typename Plain>
void bindEquality(Class& bound, Plain plain) {
  using Value = typename Class::type;
  bound.def(
      "__eq__",
      [plain](const Value& left, const Value& right) { return plain(left).equal(plain(right)); },
      py::is_operator());
}

/// Lets them be copied and pickled, too: `made` makes one of the tuple that `plain` gives.
template <typename Class, typename Plain, typename Made>
void bindValue(Class& bound, Plain plain, Made made) {
  bindEquality(bound, plain);
  bound.def(py::pickle(plain, made));
}

}  // namespace zorvel::python

#endif
