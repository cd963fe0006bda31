#ifndef ZV_BODY_LANGUAGE_STATE_HPP
#define ZV_BODY_LANGUAGE_STATE_HPP

#include <boost/shared_ptr.hpp>
#include <iosfwd>

#include "zv/body_language_ease.hpp"
#include "zv/export.hpp"

namespace ZV {

class PersonMemory;
struct BodyLanguageStatePrivate;

/// What can be read from a body-language state.
enum class BodyLanguageDescription {
  Ease = 0,
};

/// What a person's body language shows, from the head postures of the last 7 s. Copies share one
/// record, which lives as long as the last of them.
///
/// Thread safety: none of its own; the owner of the person serialises updates and reads.
class ZV_API BodyLanguageState {
 public:
  /// A new record with an ease of (0, 0).
  BodyLanguageState();

  /// Shares the record of the other one, as a move does: no handle is ever empty.
  BodyLanguageState(const BodyLanguageState&) = default;
  /// The same for assignment.
  BodyLanguageState& operator=(const BodyLanguageState&) = default;

  /// Recomputes the ease as the mean over the remembered head postures. Without any, it stays as it
  /// was.
  void update(const PersonMemory& memory);

  /// The ease. Throws std::invalid_argument for any other description.
  BodyLanguageEase bodyLanguageState(BodyLanguageDescription description) const;

  /// The shared record, for the library's own modules.
  BodyLanguageStatePrivate& _record() const { return *_state; }

 private:
  boost::shared_ptr<BodyLanguageStatePrivate> _state;
};

/// Writes the ease.
ZV_API std::ostream& operator<<(std::ostream& stream, const BodyLanguageState& state);

}  // namespace ZV

#endif
