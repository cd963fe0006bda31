#ifndef KU_DETAIL_TYPE_HPP
#define KU_DETAIL_TYPE_HPP

#include <type_traits>

// The templates of ku/type.hpp; include that one.
namespace ku {
namespace detail {

KU_API std::string readableName(const std::type_info& type);
KU_API void logStorageError(const std::type_info& type);

// Thrown in the library, so that a program without exceptions may include the templates.
[[noreturn]] KU_API void throwBadCast();
[[noreturn]] KU_API void throwInvalidArgument(const std::string& message);

template <typename T>
class ByPointerType : public TypeInterface {
 public:
  const std::type_info& typeInfo() const override { return typeid(T); }
  std::string name() const override { return readableName(typeid(T)); }
  void* initializeStorage(void* object) const override {
    if (object == nullptr) logStorageError(typeid(T));
    return object;
  }
  void* clone(const void* object) const override {
    if constexpr (std::is_copy_constructible_v<T>) {
      return new T(*static_cast<const T*>(object));
    } else {
      return nullptr;
    }
  }
  void destroy(void* object) const override { delete static_cast<T*>(object); }
};

template <typename T>
T load(const T& value) {
  if constexpr (std::is_arithmetic_v<T>) {
    T copy;
    __atomic_load(&value, &copy, __ATOMIC_RELAXED);
    return copy;
  } else {
    return value;
  }
}

template <typename T>
void store(T& target, T value) {
  if constexpr (std::is_arithmetic_v<T>) {
    __atomic_store(&target, &value, __ATOMIC_RELAXED);
  } else {
    target = value;
  }
}

}  // namespace detail

template <typename T>
const TypeInterface* typeOf() {
  if (const TypeInterface* registered = getType(typeid(T))) return registered;
  static const auto* const byPointer = new detail::ByPointerType<T>;
  return byPointer;
}

template <typename T>
T Reference::as() const {
  static_assert(std::is_arithmetic_v<T>, "only built-in types are read as a value");
  if (type == nullptr || type->typeInfo() != typeid(T)) detail::throwBadCast();
  return detail::load(*static_cast<const T*>(object));
}

template <typename T>
Reference Reference::to(T& value) {
  return {typeOf<T>(), &value};
}

}  // namespace ku

#endif
