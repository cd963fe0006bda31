#include "types/type_registration.hpp"

#include <ku/struct_type.hpp>

#include "bodylanguage/body_language_state_private.hpp"
#include "state/person_state_private.hpp"
#include "zv/ambiance_state.hpp"
#include "zv/person.hpp"

namespace ZV {
namespace {

/// Declares the plain structure T. Descriptions are never freed: the middleware refers to them
/// until the process ends.
template <typename T>
class Plain {
 public:
  template <typename Accessor>
  Plain& member(const char* name, Accessor accessor) {
    _members.push_back(ku::member<T>(name, accessor));
    return *this;
  }

  const ku::PlainStruct<T>& as(const char* className) {
    const auto* const description = new ku::PlainStruct<T>(className, _members);
    ku::registerStruct(description);
    ku::registerType(typeid(T), description);
    return *description;
  }

 private:
  std::vector<ku::Member<T>> _members;
};

template <typename Handle, typename Record>
void declareBouncer(const char* className, const ku::PlainStruct<Record>& record) {
  const auto follow = [](Handle& handle) -> Record& { return handle._record(); };
  ku::registerType(typeid(Handle), new ku::Bouncer<Handle, Record>(className, record, follow));
}

template <typename T>
void declareValueConfidence(const char* className) {
  Plain<ValueConfidence<T>>()
      .member("value", &ValueConfidence<T>::value)
      .member("confidence", &ValueConfidence<T>::confidence)
      .as(className);
}

}  // namespace

// What is declared here is what other processes see: class names, and members' names and order.
// Only the name of BodyLanguageEase has no leading colons.
TypeRegistration::TypeRegistration() {
  Plain<AmbianceState>()
      .member("agitationLevel", &AmbianceState::agitationLevel)
      .member("calmLevel", &AmbianceState::calmLevel)
      .as("::ZV::AmbianceState");

  Plain<BodyLanguageEase>()
      .member("level", &BodyLanguageEase::level)
      .member("confidence", &BodyLanguageEase::confidence)
      .as("ZV::BodyLanguageEase");

  const auto& bodyLanguageStatePrivate = Plain<BodyLanguageStatePrivate>()
                                             .member("ease", &BodyLanguageStatePrivate::ease)
                                             .as("::ZV::BodyLanguageStatePrivate");

  declareBouncer<BodyLanguageState>("::ZV::BodyLanguageState", bodyLanguageStatePrivate);

  declareValueConfidence<bool>("::ZV::ValueConfidence<bool>");
  declareValueConfidence<float>("::ZV::ValueConfidence<float>");
  declareValueConfidence<unsigned int>("::ZV::ValueConfidence<unsigned int>");

  Plain<Expressions>()
      .member("calm", &Expressions::calm)
      .member("anger", &Expressions::anger)
      .member("joy", &Expressions::joy)
      .member("sorrow", &Expressions::sorrow)
      .member("laughter", &Expressions::laughter)
      .member("excitement", &Expressions::excitement)
      .member("surprise", &Expressions::surprise)
      .as("::ZV::Expressions");

  Plain<Gaze>().member("yaw", &Gaze::yaw).member("pitch", &Gaze::pitch).as("::ZV::Gaze");

  // Shown with the two numbers of its only field as its own members.
  Plain<Smile>()
      .member("value", [](Smile& smile) -> float& { return smile._smile.value; })
      .member("confidence", [](Smile& smile) -> float& { return smile._smile.confidence; })
      .as("::ZV::Smile");

  const auto& personStatePrivate =
      Plain<PersonStatePrivate>()
          .member("valence", &PersonStatePrivate::valence)
          .member("attention", &PersonStatePrivate::attention)
          .member("bodyLanguageState", &PersonStatePrivate::bodyLanguageState)
          .member("smile", &PersonStatePrivate::smile)
          .member("expressions", &PersonStatePrivate::expressions)
          .as("::ZV::PersonStatePrivate");

  declareBouncer<PersonState>("::ZV::PersonState", personStatePrivate);

  Plain<Person>()
      .member("userSessionID", &Person::userSessionID)
      .member("personState", &Person::personState)
      .as("::ZV::Person");
}

}  // namespace ZV
