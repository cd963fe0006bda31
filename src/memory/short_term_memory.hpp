#ifndef ZV_MEMORY_SHORT_TERM_MEMORY_HPP
#define ZV_MEMORY_SHORT_TERM_MEMORY_HPP

#include <algorithm>
#include <boost/chrono/duration.hpp>
#include <boost/thread/lock_types.hpp>
#include <boost/thread/mutex.hpp>
#include <cstdint>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <vector>

#include "observation/age.hpp"
#include "zv/timestamped.hpp"

namespace ZV {

/// The recent observations of one channel. Whatever is older than the age limit is forgotten when
/// an observation is recorded, and when `size` or `youngest` is called.
///
/// Thread safety: `record`, `reserveFor`, `takeIn`, `size` and `youngest` take the memory's lock.
template <typename T>
class ShortTermMemory {
 public:
  using Entry = Timestamped<T>;

  explicit ShortTermMemory(boost::chrono::milliseconds limit) : maxAge(limit) {}

  /// Adds one observation, at its place in time. One with the timestamp of an entry is dropped: the
  /// first arrival wins.
  void record(const Entry& observation) {
    const boost::unique_lock<boost::mutex> lock(_mutex);
    insert(observation);
    _forgetOld();
  }

  /// Makes room for the entries of another memory, so that taking them in allocates nothing.
  void reserveFor(const ShortTermMemory& other) {
    const boost::unique_lock<boost::mutex> lock(_mutex);
    _entries.reserve(_entries.size() + other._entries.size());
  }

  /// Adds the entries of another memory, each at its place in time; of two with one timestamp, the
  /// one of this memory stays. Nothing is forgotten. The owner of the other memory serialises
  /// access to it.
  void takeIn(const ShortTermMemory& other) {
    const boost::unique_lock<boost::mutex> lock(_mutex);
    for (const Entry& entry : other._entries) insert(entry);
  }

  std::uint64_t size() {
    const boost::unique_lock<boost::mutex> lock(_mutex);
    _forgetOld();
    return _entries.size();
  }

  /// The entry with the greatest timestamp. The reference is valid until the next call. Throws
  /// std::range_error when nothing is left.
  const Entry& youngest() {
    const boost::unique_lock<boost::mutex> lock(_mutex);
    _forgetOld();
    if (_entries.empty()) throw std::range_error("The ShortTermMemory is empty.");
    return _entries.front();
  }

  /// Adds an entry of a saved memory, which must be older than those that are here, or else throws
  /// std::invalid_argument. Nothing is forgotten and no lock is taken: nobody else knows this
  /// memory yet.
  void restore(const Entry& entry) {
    if (!_entries.empty() && !(entry < _entries.back())) {
      throw std::invalid_argument("The readings of a memory are out of order.");
    }
    _entries.push_back(entry);
  }

  /// The entries as they are, youngest first. Nothing is forgotten and no lock is taken: the
  /// owner of the person serialises the iteration.
  const std::vector<Entry>& entries() const { return _entries; }

  /// Drops what is too old, keeping the order. The caller holds the lock.
  ///
  /// Every entry is tested, each against a new reading of the clock. When a reading throws, the
  /// entries moved so far stay moved and the rest stays as it is, so an entry may be there twice
  /// until age removes it.
  void _forgetOld() {
    try {
      auto kept = _entries.begin();
      for (auto entry = kept; entry != _entries.end(); ++entry) {
        if (_isTooOld(*entry)) continue;
        if (kept != entry) *kept = *entry;
        ++kept;
      }
      _entries.erase(kept, _entries.end());
    } catch (const std::exception& error) {
      std::cout << "Error while forgeting old memory: " << error.what() << std::endl;
    }
  }

  /// Whether the entry is older than the limit; one exactly as old as the limit is not.
  bool _isTooOld(const Entry& entry) const { return maxAge < ageOf(entry.timestamp); }

 private:
  void insert(const Entry& observation) {
    const auto place = std::lower_bound(
        _entries.begin(), _entries.end(), observation,
        [](const Entry& entry, const Entry& recorded) { return entry > recorded; });
    if (place == _entries.end() || place->timestamp != observation.timestamp) {
      _entries.insert(place, observation);
    }
  }

  boost::chrono::milliseconds maxAge;
  std::vector<Entry> _entries;
  boost::mutex _mutex;
};

}  // namespace ZV

#endif
