#include "ku/type.hpp"

#include <cxxabi.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <typeindex>
#include <unordered_map>

#include "ku/log.hpp"

namespace ku {
namespace {

template <typename T>
class BuiltInType : public TypeInterface {
 public:
  const std::type_info& typeInfo() const override { return typeid(T); }
  std::string name() const override { return detail::readableName(typeid(T)); }
  void* initializeStorage(void* object) const override {
    return object == nullptr ? new T() : object;
  }
  void* clone(const void* object) const override {
    return new T(detail::load(*static_cast<const T*>(object)));
  }
  void destroy(void* object) const override { delete static_cast<T*>(object); }
};

struct Registry {
  std::mutex mutex;
  std::vector<const StructTypeInterface*> structs;
  std::vector<const TypeInterface*> types;
  std::unordered_map<std::type_index, const TypeInterface*> byIdentity{
      {typeid(bool), new BuiltInType<bool>},
      {typeid(int), new BuiltInType<int>},
      {typeid(unsigned int), new BuiltInType<unsigned int>},
      {typeid(float), new BuiltInType<float>},
  };
};

// Never destroyed: libraries register while the process starts, and look up until it ends.
Registry& registry() {
  static auto* const instance = new Registry;
  return *instance;
}

}  // namespace

TypeInterface::~TypeInterface() = default;

bool TypeInterface::less(const void* left, const void* right) const {
  return std::less<>()(left, right);
}

bool StructTypeInterface::canConvert(const std::vector<std::string>& dropped,
                                     const std::vector<std::string>& added) const {
  return dropped.empty() && added.empty();
}

bool registerStruct(const StructTypeInterface* description) {
  if (description == nullptr) return false;
  Registry& known = registry();
  const std::lock_guard<std::mutex> lock(known.mutex);
  known.structs.push_back(description);
  return true;
}

bool registerType(const std::type_info& type, const TypeInterface* description) {
  if (description == nullptr) return false;
  Registry& known = registry();
  const std::lock_guard<std::mutex> lock(known.mutex);
  known.types.push_back(description);
  known.byIdentity[type] = description;
  return true;
}

const TypeInterface* getType(const std::type_info& type) {
  Registry& known = registry();
  const std::lock_guard<std::mutex> lock(known.mutex);
  const auto found = known.byIdentity.find(type);
  return found == known.byIdentity.end() ? nullptr : found->second;
}

std::vector<const StructTypeInterface*> registeredStructs() {
  Registry& known = registry();
  const std::lock_guard<std::mutex> lock(known.mutex);
  return known.structs;
}

std::vector<const TypeInterface*> registeredTypes() {
  Registry& known = registry();
  const std::lock_guard<std::mutex> lock(known.mutex);
  return known.types;
}

namespace detail {

std::string readableName(const std::type_info& type) {
  const std::unique_ptr<char, void (*)(void*)> name(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, nullptr), std::free);
  return name ? name.get() : type.name();
}

void logStorageError(const std::type_info& type) {
  static const log::Category category = log::addCategory("kutype.bypointer");
  log::LogStream(log::Error, "", "initializeStorage", 0, category)
      << "initializeStorage error on " << type.name();
}

void throwBadCast() { throw std::bad_cast(); }

void throwInvalidArgument(const std::string& message) { throw std::invalid_argument(message); }

}  // namespace detail
}  // namespace ku
