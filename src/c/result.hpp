#ifndef ZV_C_RESULT_HPP
#define ZV_C_RESULT_HPP

#include <stdexcept>
#include <string>

#include "zv/zorvel.h"

namespace ZV {

/// The code for the exception that is being handled, whose text zv_error_text() gives from now on.
zv_code codeOfException() noexcept;

/// Runs what C has asked for.
template <typename Operation>
zv_code resultOf(Operation operation) noexcept {
  try {
    operation();
    return ZV_OK;
  } catch (...) {
    return codeOfException();
  }
}

/// What `make` returns, a pointer; null when it fails.
template <typename Make>
auto created(Make make) noexcept {
  decltype(make()) handle = nullptr;
  resultOf([&] { handle = make(); });
  return handle;
}

template <typename Object>
Object& notNull(Object* object, const char* name) {
  if (object == nullptr) throw std::invalid_argument(std::string("The ") + name + " is null.");
  return *object;
}

}  // namespace ZV

#endif
