#ifndef ZORVEL_VIEW_PERSON_IDS_HPP
#define ZORVEL_VIEW_PERSON_IDS_HPP

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "recording/event.hpp"
#include "view/peers.hpp"

namespace zorvel {

/// Which sender each person's id belongs to, so that two senders never mean different people by one
/// number: the one that used it first, or that was given it, until the sender or the person leaves.
class PersonIds {
 public:
  /// Throws Failure when the event is about an id of another sender.
  void requireFree(const Sender& sender, const Event& event) const;
  /// Gives the sender the ids of those whom the event, once it was played, leaves there.
  void claim(const Sender& sender, const Event& event);

  /// The answer to a sender that requests ids of its own, ones of nobody who is present; empty when
  /// the line is not a request. Throws JsonError for a bad request.
  std::string answerRequest(const Sender& sender, std::string line, const Newest& present);

  /// The person has gone.
  void release(std::int32_t person) { _owners.erase(person); }
  /// The sender has gone.
  void release(const Sender& sender);

 private:
  struct Range {
    std::int32_t first;
    std::int32_t count;
    const Sender* owner;
    /// A sender that has it may take the range over.
    std::string key;
  };

  void requireFree(const Sender& sender, std::int32_t person) const;
  const Sender* ownerOf(std::int32_t person) const;
  void dropRanges(const Sender& sender);
  bool isFree(const Range& range) const;
  std::string grant(const Sender& sender, std::int32_t count, std::optional<std::int32_t> before,
                    std::string_view key, const Newest& present);

  std::map<std::int32_t, const Sender*> _owners;
  std::vector<Range> _ranges;
};

}  // namespace zorvel

#endif
