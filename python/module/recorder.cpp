#include <boost/thread/lock_types.hpp>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>
#include <zv/emotion_recorder.hpp>

#include "conversions.hpp"
#include "interpreter.hpp"
#include "parts.hpp"
#include "state.hpp"

namespace zorvel::python {
namespace {

struct Sample {
  std::int64_t time;
  ZV::ValueConfidence<float> valence;
  ZV::ValueConfidence<float> attention;
};

}  // namespace

void addRecorder(py::module_& module) {
  py::class_<Sample>(module, "Sample", "The state of one update in a scope.")
      .def_readonly("time", &Sample::time, "When, in nanoseconds since 1970.")
      .def_readonly("valence", &Sample::valence, "The valence of the state.")
      .def_readonly("attention", &Sample::attention, "The attention of the state.");

  using Recorder = ZV::ZVEmotionRecorder;
  py::class_<Recorder>(module, "Recorder", "What zorvel.Recorder is made of.")
      .def(py::init<>())
      .def(
          "start",
          [](Recorder& recorder, py::handle of, py::handle limit) {
            const std::string name = textFrom(of, "name");
            const std::int32_t samples = samplesFrom(limit);
            withoutLock([&] { recorder.startRecording(name, samples); });
          },
          py::arg("name"), py::arg("samples") = py::none(),
          "Opens a scope for this many updates; None for no limit. One that is open begins anew.")
      .def(
          "update",
          [](Recorder& recorder, const State& state) {
            const boost::unique_lock<boost::mutex> lock(recorder.mutex);
            recorder.update_notMutexed(
                ZV::PersonState(state.valence.value, state.valence.confidence,
                                state.attention.value, state.attention.confidence));
          },
          py::arg("state"), py::call_guard<Unlocked>(), "Adds a sample to every open scope.")
      .def("merge", &Recorder::merge, py::arg("other"), py::call_guard<Unlocked>(),
           "Takes over the scopes of another recorder, whose person turned out to be this one's. "
           "Scopes of one name become one, with the samples of both and the limit of this one's.")
      .def(
          "stop",
          [](Recorder& recorder, py::handle of) {
            const std::string name = textFrom(of, "name");
            auto [label, samples] = withoutLock([&] { return recorder.stopRecording(name); });
            std::vector<Sample> all;
            for (const auto& [time, state] : samples) {
              all.push_back({nanoseconds(time), state.personValence(), state.personAttention()});
            }
            return std::pair(std::move(label), std::move(all));
          },
          py::arg("name"),
          "Closes a scope; returns its label, \"positive\", \"negative\", \"neutral\", \"unknown\" "
          "or, when no such scope is open, \"error\", and its samples.");
}

}  // namespace zorvel::python
