#include <dlfcn.h>
#include <gtest/gtest.h>

#include <ku/log.hpp>
#include <ku/type.hpp>

namespace {

const auto& structure(const ku::TypeInterface* type) {
  return dynamic_cast<const ku::StructTypeInterface&>(*type);
}

TEST(Loading, RegistersCategoriesAndTypesInOrder) {
  ASSERT_TRUE(ku::log::registrations().empty() && ku::registeredTypes().empty());
  ASSERT_NE(dlopen(ZORVEL_LIBRARY, RTLD_NOW | RTLD_LOCAL), nullptr) << dlerror();
  std::string categories;
  for (const auto& name : ku::log::registrations()) categories += name + ' ';
  EXPECT_EQ(
      categories,
      "velo.zorvel.ambiance velo.zorvel.bodylanguageease velo.zorvel.bodylanguagestate "
      "velo.zorvel.person velo.zorvel.emotionalstate velo.zorvel.personmemory "
      "velo.zorvel.personmemory velo.zorvel.ramp velo.zorvel.socialgraph velo.ZorvelRecorder ");
  const std::string number = " ::ZV::ValueConfidence<float>",
                    members = ", valence" + number + ", attention" + number +
                              ", bodyLanguageState ::ZV::BodyLanguageState, smile ::ZV::Smile, "
                              "expressions ::ZV::Expressions\n";
  const std::string table =
      "::ZV::AmbianceState, agitationLevel float, calmLevel float\n"
      "ZV::BodyLanguageEase, level float, confidence float\n"
      "::ZV::BodyLanguageStatePrivate, ease ZV::BodyLanguageEase\n"
      "::ZV::BodyLanguageState*, ease ZV::BodyLanguageEase\n"
      "::ZV::ValueConfidence<bool>, value bool, confidence float\n"
      "::ZV::ValueConfidence<float>, value float, confidence float\n"
      "::ZV::ValueConfidence<unsigned int>, value unsigned int, confidence float\n"
      "::ZV::Expressions, calm" +
      number + ", anger" + number + ", joy" + number + ", sorrow" + number + ", laughter" + number +
      ", excitement" + number + ", surprise" + number + "\n" +
      "::ZV::Gaze, yaw float, pitch float\n::ZV::Smile, value float, confidence float\n"
      "::ZV::PersonStatePrivate" +
      members + "::ZV::PersonState*" + members +
      "::ZV::Person, userSessionID int, personState ::ZV::PersonState\n";
  std::string registered;
  std::vector<const ku::StructTypeInterface*> plain;
  for (const auto* type : ku::registeredTypes()) {
    const auto names = structure(type).memberNames();
    const auto types = structure(type).memberTypes();
    const bool isPlain = structure(type).kind() == ku::StructKind::Plain;
    if (isPlain) plain.push_back(&structure(type));
    registered += structure(type).className() + (isPlain ? "" : "*");
    void* const object = type->initializeStorage();
    for (unsigned int i = 0; i < names.size(); ++i) {
      registered += ", " + names[i] + ' ' + types[i]->name();
      if (i == 0 || types[i] != types[i - 1]) continue;  // neighbours of one type lie in order
      EXPECT_LT(structure(type).get(object, i - 1).object, structure(type).get(object, i).object);
    }
    registered += '\n';
    type->destroy(object);
    EXPECT_EQ(ku::getType(type->typeInfo()), type);
  }
  EXPECT_EQ(registered, table);
  EXPECT_EQ(ku::registeredStructs(), plain);
}

}  // namespace
