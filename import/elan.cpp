#include <expat.h>
#include <fmt/format.h>

#include <charconv>
#include <exception>
#include <memory>
#include <new>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "import/raters_file.hpp"
#include "recording/failure.hpp"
#include "recording/line_reader.hpp"

namespace zorvel {
namespace {

/// No tiers are nested deeper; what refers on and on, or in a circle, has no time.
constexpr int deepest = 100;

using Parser = std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)>;

/// Takes the parts of a document as they come, and puts them together at its end, as what an
/// annotation refers to may come after it.
class ElanDocument {
 public:
  ElanDocument(const LineReader& lines, XML_Parser parser) : _lines(lines), _parser(parser) {
    XML_SetUserData(parser, this);
    XML_SetElementHandler(
        parser,
        [](void* self, const XML_Char* name, const XML_Char** attributes) {
          static_cast<ElanDocument*>(self)->guarded(
              [&](ElanDocument& document) { document.begin(name, attributes); });
        },
        [](void* self, const XML_Char* name) {
          static_cast<ElanDocument*>(self)->guarded(
              [&](ElanDocument& document) { document.end(name); });
        });
    XML_SetCharacterDataHandler(parser, [](void* self, const XML_Char* text, int length) {
      static_cast<ElanDocument*>(self)->guarded([&](ElanDocument& document) {
        if (document._isInValue) document._value.append(text, static_cast<std::size_t>(length));
      });
    });
    // Without one there are no entities of its own, nothing to be expanded or fetched.
    XML_SetStartDoctypeDeclHandler(
        parser, [](void* self, const XML_Char*, const XML_Char*, const XML_Char*, int) {
          static_cast<ElanDocument*>(self)->guarded(
              [](ElanDocument& document) { document.fail("has a DOCTYPE, which is refused"); });
        });
  }

  /// Throws what a handler found wrong, which must not pass through the parser itself.
  void parse(std::string_view text, bool isLast) {
    const auto status = XML_Parse(_parser, text.data(), static_cast<int>(text.size()), isLast);
    if (_failure != nullptr) std::rethrow_exception(_failure);
    if (status == XML_STATUS_ERROR) {
      fail(fmt::format("is not XML: {}", XML_ErrorString(XML_GetErrorCode(_parser))));
    }
  }

  RatersFile take() {
    RatersFile file;
    file.tiers = std::move(_tiers);
    for (Entry& entry : _entries) {
      const Entry* timed = &entry;
      // Each has the time of what it refers to, unless several share that.
      for (int depth = 0; timed != nullptr && !timed->reference.empty(); ++depth) {
        const auto referred = _places.find(timed->reference);
        const bool isShared = _constraints[timed->type] == "Symbolic_Subdivision";
        timed = isShared || referred == _places.end() || depth == deepest
                    ? nullptr
                    : &_entries[referred->second];
      }
      if (timed != nullptr) {
        entry.annotation.begin = timeOf(timed->beginSlot);
        entry.annotation.end = timeOf(timed->endSlot);
      }
    }
    for (Entry& entry : _entries) file.annotations.push_back(std::move(entry.annotation));
    return file;
  }

 private:
  /// An annotation, and what it says of its time.
  struct Entry {
    Annotation annotation;
    std::string type;
    std::string beginSlot;
    std::string endSlot;
    std::string reference;
  };

  template <typename Handle>
  void guarded(Handle handle) {
    if (_failure != nullptr) return;
    try {
      handle(*this);
    } catch (...) {
      _failure = std::current_exception();
      XML_StopParser(_parser, XML_FALSE);
    }
  }

  [[noreturn]] void fail(const std::string& message) const {
    throw Failure(_lines.place() + message, {_lines.name(), _lines.lineNumber(), "", 0});
  }

  /// The value of an attribute; empty without one.
  static std::string_view valueOf(const XML_Char** attributes, std::string_view name) {
    for (; *attributes != nullptr; attributes += 2) {
      if (name == attributes[0]) return attributes[1];
    }
    return {};
  }

  void begin(std::string_view name, const XML_Char** attributes) {
    const auto value = [attributes](std::string_view attribute) {
      return std::string(valueOf(attributes, attribute));
    };
    if (std::exchange(_isRoot, false) && name != "ANNOTATION_DOCUMENT") {
      fail("is not a document of ELAN");
    }
    if (name == "HEADER") {
      const std::string unit = value("TIME_UNITS");
      if (!unit.empty() && unit != "milliseconds") {
        fail(fmt::format("counts time in {}, where milliseconds are read", inQuotes(unit)));
      }
    } else if (name == "TIME_SLOT") {
      addSlot(value("TIME_SLOT_ID"), valueOf(attributes, "TIME_VALUE"));
    } else if (name == "TIER") {
      _tier = value("TIER_ID");
      _type = value("LINGUISTIC_TYPE_REF");
      _tiers[_tier] = value("PARTICIPANT");
    } else if (name == "ALIGNABLE_ANNOTATION" || name == "REF_ANNOTATION") {
      _places[value("ANNOTATION_ID")] = _entries.size();
      _entries.push_back({{_lines.lineNumber(), _tier, _tiers[_tier], "", {}, {}},
                          _type,
                          value("TIME_SLOT_REF1"),
                          value("TIME_SLOT_REF2"),
                          value("ANNOTATION_REF")});
    } else if (name == "ANNOTATION_VALUE") {
      if (_entries.empty()) fail("has a value outside of an annotation");
      _isInValue = true;
      _value.clear();
    } else if (name == "LINGUISTIC_TYPE") {
      _constraints[value("LINGUISTIC_TYPE_ID")] = value("CONSTRAINTS");
    }
  }

  void end(std::string_view name) {
    if (name != "ANNOTATION_VALUE") return;
    _isInValue = false;
    _entries.back().annotation.text = _value;
  }

  void addSlot(std::string slot, std::string_view text) {
    if (text.empty()) return;
    std::uint32_t milliseconds = 0;
    const char* const last = text.data() + text.size();
    if (const auto read = std::from_chars(text.data(), last, milliseconds);
        read.ec != std::errc() || read.ptr != last) {
      fail(fmt::format("{} is not a time in milliseconds", inQuotes(text)));
    }
    _slots[std::move(slot)] = boost::chrono::milliseconds(milliseconds);
  }

  std::optional<Time::duration> timeOf(const std::string& slot) const {
    const auto found = _slots.find(slot);
    if (found == _slots.end()) return std::nullopt;
    return found->second;
  }

  const LineReader& _lines;
  XML_Parser _parser;
  std::exception_ptr _failure;
  bool _isRoot = true;
  bool _isInValue = false;
  std::string _value;
  std::string _tier;
  std::string _type;
  std::map<std::string, std::string> _tiers;
  std::vector<Entry> _entries;
  /// The place of the annotation of an id among the entries.
  std::unordered_map<std::string, std::size_t> _places;
  std::unordered_map<std::string, Time::duration> _slots;
  /// How the annotations of a linguistic type belong to those that they refer to.
  std::unordered_map<std::string, std::string> _constraints;
};

}  // namespace

RatersFile readElan(const std::string& file, const WaitForInput& waitForInput) {
  LineReader lines(file, waitForInput);
  const Parser parser(XML_ParserCreate(nullptr), &XML_ParserFree);
  if (parser == nullptr) throw std::bad_alloc();
  ElanDocument document(lines, parser.get());
  std::string line;
  while (lines.next(line)) document.parse(line + '\n', false);
  document.parse("", true);
  return document.take();
}

}  // namespace zorvel
