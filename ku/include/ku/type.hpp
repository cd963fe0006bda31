#ifndef KU_TYPE_HPP
#define KU_TYPE_HPP

#include <string>
#include <typeinfo>
#include <vector>

#include "ku/export.hpp"

#ifndef __cpp_rtti
#error "ku/type.hpp tells types apart by their typeid: leave out -fno-rtti where it is included"
#endif

/// Descriptions of types: what a module needs to store, copy and inspect a value that it knows only
/// by name.
///
/// Thread safety: registering and looking up may be done from any thread. Descriptions are not
/// changed after their registration. Access to an object through its description takes no lock of
/// the object.
///
/// Types are told apart by their `typeid`, so files that include this one need run-time type
/// information: no -fno-rtti.
namespace ku {

/// Describes a type. A registered description lives until the process ends.
///
/// Thread safety: a description does not change; access to an object takes no lock of the object.
class KU_API TypeInterface {
 public:
  TypeInterface() = default;
  TypeInterface(const TypeInterface&) = delete;
  TypeInterface& operator=(const TypeInterface&) = delete;
  virtual ~TypeInterface();

  /// The run-time identity of the described type.
  virtual const std::type_info& typeInfo() const = 0;
  /// The name that people and other processes see: the class name of a structure, the C++ name of
  /// any other type.
  virtual std::string name() const = 0;
  /// `object` if one is passed, else a new default-constructed object, which the caller hands to
  /// `destroy` in the end. Null where the type cannot be default-constructed.
  virtual void* initializeStorage(void* object = nullptr) const = 0;
  /// A new object, copy-constructed from `object`; the caller hands it to `destroy` in the end.
  /// Null where the type cannot be copied.
  virtual void* clone(const void* object) const = 0;
  /// Deletes an object that `initializeStorage` or `clone` made.
  virtual void destroy(void* object) const = 0;
  /// Orders two objects by their addresses, not by their contents.
  virtual bool less(const void* left, const void* right) const;
};

/// An object together with its description; both null when there is nothing to refer to. It does
/// not own the object.
///
/// Thread safety: that of a plain value; `as` may be called while another thread writes the object
/// through its description.
struct KU_API Reference {
  const TypeInterface* type = nullptr;  ///< what the object is
  void* object = nullptr;               ///< the object, not owned

  /// Whether it refers to an object.
  explicit operator bool() const { return object != nullptr; }

  /// The value of a built-in type, read in one relaxed atomic access, so that reading races with
  /// no writer that does the same. Throws std::bad_cast when the object is of another type.
  template <typename T>
  T as() const;

  /// A reference to `value`, described by what is registered for its type.
  template <typename T>
  static Reference to(T& value);
};

/// How a structure is shown.
enum class StructKind {
  Plain,    ///< the object itself
  Bouncer,  ///< a handle, shown with the members of the record it points to
};

/// Describes a structure with named members. Members are counted from 0, in the order declared.
///
/// Thread safety: that of TypeInterface.
class KU_API StructTypeInterface : public TypeInterface {
 public:
  /// Whether the members are the object's own or its record's.
  virtual StructKind kind() const = 0;
  /// The name that other modules know the structure by.
  virtual std::string className() const = 0;
  /// The descriptions of the members, in order.
  virtual std::vector<const TypeInterface*> memberTypes() const = 0;
  /// The names of the members, in order.
  virtual std::vector<std::string> memberNames() const = 0;

  /// A reference to member `index` of `object`; null for an index past the last member.
  virtual Reference get(void* object, unsigned int index) const = 0;
  /// Copies `value` into member `index` of `object`; an index past the last member does nothing.
  /// Throws std::invalid_argument when the value is not of the member's type.
  virtual void set(void* object, unsigned int index, Reference value) const = 0;
  /// References to all members of `object`, in order.
  virtual std::vector<Reference> get(void* object) const = 0;
  /// Sets the members in order, as many as there are values. Throws as the single `set` does; the
  /// members before the refused value are then already set.
  virtual void set(void* object, const std::vector<Reference>& values) const = 0;

  /// Whether a value of another version of the structure can be converted, given the names of the
  /// members that it has and this one lacks, and the other way round. By default only when there
  /// are none.
  virtual bool canConvert(const std::vector<std::string>& dropped,
                          const std::vector<std::string>& added) const;

  std::string name() const override { return className(); }
};

/// Registers a structure by its description, which must live until the process ends. Returns false,
/// and changes nothing, when it is null.
KU_API bool registerStruct(const StructTypeInterface* description);

/// Registers the description of the type of that identity. A second registration for one type
/// takes the place of the first in look-ups. The description must live until the process ends.
/// Returns false, and changes nothing, when it is null.
KU_API bool registerType(const std::type_info& type, const TypeInterface* description);

/// The description registered for a type; null when there is none. bool, int, unsigned int and
/// float are registered from the start.
KU_API const TypeInterface* getType(const std::type_info& type);

/// The structures registered by description, in their order.
KU_API std::vector<const StructTypeInterface*> registeredStructs();

/// The descriptions registered by type identity, in their order; without those that are there from
/// the start.
KU_API std::vector<const TypeInterface*> registeredTypes();

/// The description registered for T, or, where there is none, a default one that passes objects by
/// pointer. The default is made on first use and kept until the process ends. It cannot construct
/// objects: asked for storage without one, it logs an error in the category "kutype.bypointer" and
/// gives null.
template <typename T>
const TypeInterface* typeOf();

}  // namespace ku

#include "ku/detail/type.hpp"

#endif
