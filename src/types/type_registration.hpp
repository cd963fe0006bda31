#ifndef ZV_TYPES_TYPE_REGISTRATION_HPP
#define ZV_TYPES_TYPE_REGISTRATION_HPP

namespace ZV {

/// Declares the public records to the middleware's type system when constructed, once for the whole
/// process. It is a class so that records with private members can make it a friend.
class TypeRegistration {
 public:
  TypeRegistration();
};

}  // namespace ZV

#endif
