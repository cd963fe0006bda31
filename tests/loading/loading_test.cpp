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
  std::vector<const ku::StructTypeInterface*> plain;
  for (const auto* type : ku::registeredTypes()) {
    const auto types = structure(type).memberTypes();
    const bool isPlain = structure(type).kind() == ku::StructKind::Plain;
    if (isPlain) plain.push_back(&structure(type));
    void* const object = type->initializeStorage();
    for (unsigned int i = 1; i < types.size(); ++i) {
      if (types[i] != types[i - 1]) continue;  // neighbours of one type lie in order
      EXPECT_LT(structure(type).get(object, i - 1).object, structure(type).get(object, i).object);
    }
    type->destroy(object);
    EXPECT_EQ(ku::getType(type->typeInfo()), type);
  }
  EXPECT_EQ(ku::registeredTypes().size(), 13u);
  EXPECT_EQ(ku::registeredStructs(), plain);
}

}  // namespace
