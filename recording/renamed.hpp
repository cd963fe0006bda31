#ifndef ZORVEL_RECORDING_RENAMED_HPP
#define ZORVEL_RECORDING_RENAMED_HPP

#include <utility>

#include "recording/event.hpp"

namespace zorvel {

/// Does to a map by person what a renaming does to the people: the person's entry moves to the new
/// id. Where both ids have one, `merge(kept, moved)` makes one of the two.
template <typename Map, typename Merge>
void applyRename(const Rename& rename, Map& byPerson, Merge merge) {
  if (rename.person == rename.to) return;
  auto moved = byPerson.extract(rename.person);
  if (moved.empty()) return;
  const auto kept = byPerson.find(rename.to);
  if (kept != byPerson.end()) return merge(kept->second, moved.mapped());
  moved.key() = rename.to;
  byPerson.insert(std::move(moved));
}

}  // namespace zorvel

#endif
