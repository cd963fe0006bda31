#include "fields.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <ku/clock.hpp>
#include <limits>
#include <optional>
#include <string_view>
#include <type_traits>

#include "conversions.hpp"
#include "interpreter.hpp"
#include "recording/observation_fields.hpp"

namespace zorvel::python {
namespace {

std::string snakeCase(std::string_view name) {
  std::string snake;
  for (const char letter : name) {
    if (std::isupper(static_cast<unsigned char>(letter)) != 0) snake += '_';
    snake += static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
  }
  return snake;
}

void read(py::handle object, const std::string& place, float& number) {
  number = floatFrom(object, place);
}
void read(py::handle object, const std::string& place, std::int32_t& number) {
  number = integer32From(object, place);
}
void read(py::handle object, const std::string& place, std::uint32_t& number) {
  constexpr std::int64_t highest = std::numeric_limits<std::uint32_t>::max();
  const std::int64_t value = integerFrom(object, place);
  if (value < 0 || value > highest) failValue(place, fmt::format("must be from 0 to {}", highest));
  number = static_cast<std::uint32_t>(value);
}
void read(py::handle object, const std::string& place, bool& number) {
  const std::string_view type = Py_TYPE(object.ptr())->tp_name;
  if (!PyBool_Check(object.ptr()) && type != "numpy.bool_") {
    failType(place, fmt::format("must be True or False, not {}", type));
  }
  number = PyObject_IsTrue(object.ptr()) != 0;
}

/// The elements of a tuple, a list, an array and the like.
class Elements {
 public:
  Elements(py::handle object, const std::string& place, std::size_t count, std::string_view what) {
    PyObject* const pointer = object.ptr();
    const bool isText = PyUnicode_Check(pointer) || PyBytes_Check(pointer) ||
                        PyByteArray_Check(pointer) || PyMemoryView_Check(pointer);
    // A copy: what reads the elements may run code that changes the sequence.
    if (!isText && PySequence_Check(pointer) != 0) {
      _items = py::reinterpret_steal<py::object>(
          stayingAtTheEnd([&] { return PySequence_Tuple(pointer); }));
      PyErr_Clear();
    }
    if (!_items || PyTuple_GET_SIZE(_items.ptr()) != static_cast<Py_ssize_t>(count)) {
      failType(place, fmt::format("must be {}", what));
    }
  }
  py::handle operator[](std::size_t index) const {
    return PyTuple_GET_ITEM(_items.ptr(), static_cast<Py_ssize_t>(index));
  }

 private:
  py::object _items;
};

std::size_t countOf(const NumberKinds& kinds) {
  std::size_t count = 0;
  while (count < kinds.size() && !kinds.at(count).name.empty()) ++count;
  return count;
}

/// "(value, confidence)"
std::string describe(const NumberKinds& kinds) {
  std::string names;
  for (std::size_t index = 0; index < countOf(kinds); ++index) {
    names += fmt::format("{}{}", index == 0 ? "" : ", ", kinds.at(index).name);
  }
  return "(" + names + ")";
}

/// Reads the numbers of a value from a tuple.
class TupleReader {
 public:
  TupleReader(py::handle object, const std::string& place, const NumberKinds& kinds)
      : _place(place), _elements(object, place, countOf(kinds), describe(kinds)) {}

  template <typename Number>
  void operator()(const NumberKind& kind, Number& number) {
    const py::handle element = _elements[_next++];
    if (PyFloat_CheckExact(element.ptr())) {
      // Spares the usual case the text of its place.
      if constexpr (std::is_same_v<Number, float>) {
        const auto narrowed = static_cast<float>(PyFloat_AS_DOUBLE(element.ptr()));
        if (narrowed - narrowed == 0.0f) {
          number = narrowed;
          return;
        }
      }
    }
    read(element, fmt::format("{}.{}", _place, kind.name), number);
  }

 private:
  const std::string& _place;
  Elements _elements;
  std::size_t _next = 0;
};

/// Reads a value that consists of parts with names or numbers.
class PartsReader {
 public:
  PartsReader(py::handle object, const std::string& place) : _object(object), _place(place) {
    if (py::isinstance<py::dict>(object) || py::hasattr(object, "keys")) {
      _parts = py::reinterpret_steal<py::dict>(PyDict_New());
      const auto update = [&] { return PyDict_Update(_parts->ptr(), object.ptr()); };
      if (stayingAtTheEnd(update) != 0) throw py::error_already_set();
    }
  }

  /// An emotion that is left out is (0, 0).
  void emotion(std::string_view name, const NumberKinds& kinds,
               ZV::ValueConfidence<float>& emotion) {
    if (!_parts) {
      failType(_place, "must be a dict such as {\"joy\": (0.9, 0.8)}");
    }
    emotion = {0.0f, 0.0f};
    _asked.push_back(name);
    const py::str key(name.data(), name.size());
    const py::handle found = PyDict_GetItem(_parts->ptr(), key.ptr());
    if (!found) return;
    const std::string place = fmt::format("{}.{}", _place, name);
    TupleReader members(found, place, kinds);
    visitMembers(members, kinds, emotion);
  }

  void points(const NumberKinds& kinds, ZV::FacialPoints& points) {
    constexpr std::size_t count = 12;
    const auto setPoint = [&](std::int64_t number, py::handle object) {
      const std::string place = fmt::format("{}[{}]", _place, number);
      if (number < 0 || number >= static_cast<std::int64_t>(count)) {
        failValue(place, "a point is from 0 to 11");
      }
      TupleReader members(object, place, kinds);
      ZV::FacialPoints::Point point;
      members(kinds[0], point.value.first);
      members(kinds[1], point.value.second);
      members(kinds[2], point.confidence);
      points.setFacialPoint(static_cast<ZV::PointDescription>(number), point);
    };
    if (_parts) {
      for (const auto& [key, object] : *_parts) {
        setPoint(integerFrom(key, _place), object);
      }
    } else {
      const Elements all(_object, _place, count, "a dict by point, or 12 of (x, y, confidence)");
      for (std::size_t number = 0; number < count; ++number) {
        setPoint(static_cast<std::int64_t>(number), all[number]);
      }
    }
  }

  /// Refuses an emotion that was not asked for.
  void finish() const {
    if (_asked.empty()) return;
    for (const auto& [key, emotion] : *_parts) {
      const std::string name = py::repr(key);
      const std::string text = py::isinstance<py::str>(key) ? textFrom(key, _place) : name;
      if (std::find(_asked.begin(), _asked.end(), text) == _asked.end()) {
        failValue(_place, fmt::format("has no {}", name));
      }
    }
  }

 private:
  py::handle _object;
  const std::string& _place;
  /// A copy of what is a mapping.
  std::optional<py::dict> _parts;
  std::vector<std::string_view> _asked;
};

/// Reads the value of a field from Python.
template <typename Value>
Value valueFrom(py::handle object, const std::string& place, const NumberKinds& kinds) {
  auto value = blankValue<Value>();
  if constexpr (std::is_arithmetic_v<Value>) {
    read(object, place, value);
  } else if constexpr (std::is_base_of_v<ZV::Expressions, Value> ||
                       std::is_same_v<Value, ZV::FacialPoints>) {
    PartsReader parts(object, place);
    visitMembers(parts, kinds, value);
    parts.finish();
  } else {
    TupleReader members(object, place, kinds);
    visitMembers(members, kinds, value);
  }
  return value;
}

py::object plain(bool number) { return py::bool_(number); }
py::object plain(float number) { return py::float_(static_cast<double>(number)); }
template <typename Integer>
py::object plain(Integer number) {
  return py::int_(number);
}

/// Makes plain Python of a value: a number, a tuple, a dict of emotions or a tuple of points.
class PlainWriter {
 public:
  template <typename Number>
  void operator()(const NumberKind& /*kind*/, const Number& number) {
    _numbers.append(plain(number));
  }
  void emotion(std::string_view name, const NumberKinds& /*kinds*/,
               const ZV::ValueConfidence<float>& emotion) {
    _emotions[py::str(name.data(), name.size())] =
        py::make_tuple(emotion.value, emotion.confidence);
  }
  void points(const NumberKinds& /*kinds*/, const ZV::FacialPoints& points) {
    for (int number = 0; number < 12; ++number) {
      const auto point = points.facialPoint(static_cast<ZV::PointDescription>(number));
      _numbers.append(py::make_tuple(point.value.first, point.value.second, point.confidence));
    }
  }

  py::object result(bool isSingle) const {
    if (isSingle) return _numbers[0];
    return _emotions.empty() ? py::tuple(_numbers) : py::object(_emotions);
  }

 private:
  py::list _numbers;
  py::dict _emotions;
};

/// What a field takes.
template <typename Value>
std::string describeValue(const NumberKinds& kinds) {
  if constexpr (std::is_same_v<Value, bool>) {
    return "True or False";
  } else if constexpr (std::is_arithmetic_v<Value>) {
    return "a number";
  } else if constexpr (std::is_same_v<Value, ZV::FacialPoints>) {
    return "a dict from a point, 0 to 11, to " + describe(kinds) + ", or all 12 in order";
  } else if constexpr (std::is_base_of_v<ZV::Expressions, Value>) {
    return "a dict from an emotion to " + describe(kinds);
  } else {
    return describe(kinds);
  }
}

template <typename Value>
void bindField(py::class_<TimedObservation>& observation, const ObservationField<Value>& field) {
  const std::string name = snakeCase(field.name);
  observation.def_property(
      name.c_str(),
      [&field](const TimedObservation& of) -> std::optional<Reading> {
        const auto& reading = of.fields.*field.member;
        if (!reading) return std::nullopt;
        PlainWriter writer;
        Value value = reading->value;
        visitMembers(writer, field.numbers, value);
        return Reading{writer.result(std::is_arithmetic_v<Value>), reading->timestamp};
      },
      [&field, name](TimedObservation& of, py::handle object) {
        auto& reading = of.fields.*field.member;
        if (object.is_none()) {
          reading = boost::none;
        } else if (py::isinstance<Reading>(object)) {
          const auto& timed = object.cast<const Reading&>();
          reading.emplace(timed.time, valueFrom<Value>(timed.value, name, field.numbers));
        } else {
          auto value = valueFrom<Value>(object, name, field.numbers);
          reading.emplace(of.time ? *of.time : ku::SystemClock::now(), value);
        }
      },
      ("A Reading, or None. It is set to " + describeValue<Value>(field.numbers) +
       ", or to a Reading of that.")
          .c_str());
}

}  // namespace

std::vector<std::string> fieldNames() {
  std::vector<std::string> names;
  for (const FieldKind& kind : fieldKinds) names.push_back(snakeCase(kind.name));
  return names;
}

void bindFields(py::class_<TimedObservation>& observation) {
  forEachField([&](std::size_t /*index*/, const auto& field) { bindField(observation, field); });
}

}  // namespace zorvel::python
