#ifndef ZV_SOCIAL_GRAPH_HPP
#define ZV_SOCIAL_GRAPH_HPP

#include <boost/container/flat_map.hpp>
#include <boost/function.hpp>
#include <boost/optional.hpp>
#include <boost/thread/mutex.hpp>
#include <cstdint>
#include <vector>

#include "zv/export.hpp"
#include "zv/person.hpp"

/// The estimator. A SocialGraph keeps a Person for each of the host's identifiers; a
/// PersonObservation, filed into it in each perception cycle, moves the person's PersonState.
namespace ZV {

/// The persons that the robot tracks, by the host's identifier. It never forgets one by itself.
/// Where a reader must not wait for a burst of updates, a StateBoard shows everybody.
///
/// Thread safety: every operation may be called from any thread and holds the graph's one lock for
/// its whole duration, callbacks included. So inside a callback a person may be read and updated
/// freely, but a callback must be short and must not use the same graph, or it waits for itself for
/// ever:
///
///     graph.read(1, [&](const ZV::Person&) { graph.remove(1); });  // never returns
///
/// The operations that insert, copy or merge throw std::bad_alloc. Those that insert also throw
/// boost::thread_resource_error when the system has no lock left. What a callback throws is passed
/// on; the lock is released, and what the callback changed stays changed.
class ZV_API SocialGraph {
 public:
  /// Inserts a new person. A person who is already there is kept as is.
  void add(std::int32_t id);
  /// Erases a person; an unknown one is no error.
  void remove(std::int32_t id);
  /// Inserts a saved person, in place of whoever has the identifier. Copies of the latter keep what
  /// they share. Throws what Person's constructor from a saved one throws; then nothing has
  /// changed.
  void restore(std::int32_t id, const SavedPerson& saved);
  /// The person `from` goes on as `to`, with the same state and memory, which copies of the person
  /// go on sharing. Where `to` is known, too, the two become one, as `merge` says. Does nothing
  /// when `from` is unknown.
  void rename(std::int32_t from, std::int32_t to);
  /// Two persons were one: `to` goes on with what is known of both, and `from` is erased. Does
  /// nothing unless both are known and differ.
  ///
  /// The memory of `to` gains that of `from`, in the order of time. Of two readings of one field
  /// and moment, that of `to` counts: it arrived first.
  ///
  /// The state of whoever was observed last goes on as it is; when both were last observed at the
  /// same moment, that of `to`. Observed last is the one with the newest reading, in the memory or
  /// used by the state, whenever it was filed; a cycle without being seen leaves no reading. For
  /// each field, the time of the reading that was used last is the later of the two. Merging moves
  /// no value and reads no clock: from the next update on, the state is what the estimator makes of
  /// this state with this memory.
  ///
  /// Copies of `to` share in all this, and its force observer stays. Copies of `from` keep state
  /// and memory as they were. When std::bad_alloc is thrown, both persons are as before.
  void merge(std::int32_t from, std::int32_t to);
  /// A copy of the person, which shares state and memory with the graph's; empty for an unknown
  /// one. The graph's lock does not protect uses of the copy.
  boost::optional<Person> find(std::int32_t id) const;
  /// Copies of all persons, by ascending identifier. What is said of the copy from `find` holds for
  /// them.
  std::vector<Person> persons() const;
  /// Calls back with the person, who is inserted if unknown, even when the callback is empty. Here
  /// and in `read`, a copy of the function is called, so a callback may change or clear the
  /// original.
  void update(std::int32_t id, boost::function<void(Person&)> callback);
  /// Calls back with the person; does nothing for an unknown one. Throws boost::bad_function_call
  /// when the person is there and the callback is empty.
  void read(std::int32_t id, boost::function<void(const Person&)> callback) const;

 private:
  friend class StateBoard;

  boost::container::flat_map<std::int32_t, Person> _persons;
  mutable boost::mutex _mutex;
};

}  // namespace ZV

#endif
