#ifndef KU_STRUCT_TYPE_HPP
#define KU_STRUCT_TYPE_HPP

#include <functional>
#include <stdexcept>
#include <utility>

#include "ku/type.hpp"

namespace ku {

/// One member of the structure T; `member` makes it.
///
/// Thread safety: that of a plain value.
template <typename T>
struct Member {
  std::string name;                             ///< what other modules call it
  std::function<const TypeInterface*()> type;   ///< looks up its description
  std::function<void*(T&)> address;             ///< where it is in an object
  std::function<void(T&, const void*)> assign;  ///< copies a value of its type into an object
};

/// Declares a member of T. `accessor` is a pointer to a data member, or a function that takes a
/// `T&` and returns a reference to the member. A built-in member is written in one relaxed atomic
/// access.
template <typename T, typename Accessor>
Member<T> member(std::string name, Accessor accessor) {
  using Value = std::remove_reference_t<std::invoke_result_t<Accessor, T&>>;
  return {std::move(name), [] { return typeOf<Value>(); },
          [accessor](T& object) -> void* { return &std::invoke(accessor, object); },
          [accessor](T& object, const void* value) {
            detail::store(std::invoke(accessor, object),
                          detail::load(*static_cast<const Value*>(value)));
          }};
}

namespace detail {

/// What plain structures and bouncers have in common: the members of `Record`, which `follow`
/// reaches from an `Object`.
template <typename Object, typename Record>
class StructDescription : public StructTypeInterface {
 public:
  StructDescription(StructKind kind, std::string className, std::vector<Member<Record>> members,
                    std::function<Record&(Object&)> follow)
      : _kind(kind),
        _className(std::move(className)),
        _members(std::move(members)),
        _follow(std::move(follow)) {}

  StructKind kind() const override { return _kind; }
  std::string className() const override { return _className; }
  const std::type_info& typeInfo() const override { return typeid(Object); }

  std::vector<const TypeInterface*> memberTypes() const override {
    std::vector<const TypeInterface*> types;
    for (const auto& member : _members) types.push_back(member.type());
    return types;
  }

  std::vector<std::string> memberNames() const override {
    std::vector<std::string> names;
    for (const auto& member : _members) names.push_back(member.name);
    return names;
  }

  Reference get(void* object, unsigned int index) const override {
    if (index >= _members.size()) return {};
    return {_members[index].type(), _members[index].address(record(object))};
  }

  void set(void* object, unsigned int index, Reference value) const override {
    if (index >= _members.size()) return;
    const auto& member = _members[index];
    const TypeInterface* type = member.type();
    if (!value || value.type == nullptr || value.type->typeInfo() != type->typeInfo()) {
      throwInvalidArgument("member \"" + member.name + "\" of " + _className + " takes a " +
                           type->name());
    }
    member.assign(record(object), value.object);
  }

  std::vector<Reference> get(void* object) const override {
    std::vector<Reference> references;
    for (unsigned int index = 0; index < _members.size(); ++index) {
      references.push_back(get(object, index));
    }
    return references;
  }

  void set(void* object, const std::vector<Reference>& values) const override {
    for (unsigned int index = 0; index < values.size(); ++index) set(object, index, values[index]);
  }

  void* initializeStorage(void* object) const override {
    return object == nullptr ? new Object() : object;
  }
  void* clone(const void* object) const override {
    return new Object(*static_cast<const Object*>(object));
  }
  void destroy(void* object) const override { delete static_cast<Object*>(object); }

  const std::vector<Member<Record>>& members() const { return _members; }

 private:
  Record& record(void* object) const { return _follow(*static_cast<Object*>(object)); }

  StructKind _kind;
  std::string _className;
  std::vector<Member<Record>> _members;
  std::function<Record&(Object&)> _follow;
};

}  // namespace detail

/// Describes T as a structure whose members are seen in the object itself.
///
/// Thread safety: that of TypeInterface.
template <typename T>
class PlainStruct : public detail::StructDescription<T, T> {
 public:
  /// The name that other modules see, and the members in their order.
  PlainStruct(std::string className, std::vector<Member<T>> members)
      : detail::StructDescription<T, T>(StructKind::Plain, std::move(className), std::move(members),
                                        [](T& object) -> T& { return object; }) {}
};

/// Describes a handle as a structure that has the members of its record, under a class name of its
/// own.
///
/// Thread safety: that of TypeInterface.
template <typename Handle, typename Record>
class Bouncer : public detail::StructDescription<Handle, Record> {
 public:
  /// The name that other modules see, what describes the record, and what gives the record of a
  /// handle. Members are copied from `record`.
  Bouncer(std::string className, const PlainStruct<Record>& record,
          std::function<Record&(Handle&)> follow)
      : detail::StructDescription<Handle, Record>(StructKind::Bouncer, std::move(className),
                                                  record.members(), std::move(follow)) {}
};

}  // namespace ku

#endif
