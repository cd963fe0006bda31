#include "playback/explainer.hpp"

namespace zorvel {

void Explainer::add(Time time, const Event& event, const Row& row) {
  if (!_start) _start = time;
  _end = time;
  const Time::duration since = between(*_start, time);
  if (_explained.at && since > *_explained.at) return;
  if (const auto* remove = std::get_if<Remove>(&event.what)) {
    const auto person = _persons.find(remove->person);
    if (person == _persons.end()) return;
    if (_explained.at) {
      _persons.erase(person);
    } else {
      person->second.isRemoved = true;
    }
  }
  const auto* const state = std::get_if<StateRow>(&row);
  if (state == nullptr || (_explained.person && state->person != *_explained.person)) return;
  if (_explained.at) {
    _persons.erase(state->person);
  } else if (since < _explained.from || since > _explained.to) {
    return;
  }
  ExplainedPerson& explained = _persons[state->person];
  if (explained.cycles++ == 0) explained.first = time;
  explained.last = time;
  if (explained.isRemoved) ++explained.newStarts;
  explained.isRemoved = false;
  explained.why.add(state->forces);
}

}  // namespace zorvel
