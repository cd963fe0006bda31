#ifndef ZV_TYPES_TYPE_REGISTRATION_HPP
#define ZV_TYPES_TYPE_REGISTRATION_HPP

namespace ZV {

/// Declares the public records to the middleware's type system when constructed, once for the whole
/// process. It is a class because some records show it their private members.
class TypeRegistration {
 public:
  TypeRegistration();
};

}  // namespace ZV

#endif
