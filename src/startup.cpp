// Everything that happens when the library is loaded, from top to bottom. Other modules
// can see the order, and across several files the linker would choose it, so it is all in this one.

#include <ku/log.hpp>

#include "log_categories.hpp"
#include "state/person_state_private.hpp"
#include "types/type_registration.hpp"

namespace ZV {
namespace log_categories {
namespace {

const ku::log::Category ambiance = ku::log::addCategory("velo.zorvel.ambiance");
const ku::log::Category bodylanguageease = ku::log::addCategory("velo.zorvel.bodylanguageease");
const ku::log::Category bodylanguagestate = ku::log::addCategory("velo.zorvel.bodylanguagestate");
const ku::log::Category person = ku::log::addCategory("velo.zorvel.person");

}  // namespace

const ku::log::Category emotionalstate = ku::log::addCategory("velo.zorvel.emotionalstate");

}  // namespace log_categories

using classification::LogregMoodScore;

const LogregMoodScore* const PersonStatePrivate::_reg_pos =
    new LogregMoodScore(LogregMoodScore::COEFFICIENT_POS());
const LogregMoodScore* const PersonStatePrivate::_reg_neu =
    new LogregMoodScore(LogregMoodScore::COEFFICIENT_NEU());
const LogregMoodScore* const PersonStatePrivate::_reg_neg =
    new LogregMoodScore(LogregMoodScore::COEFFICIENT_NEG());

namespace log_categories {
namespace {

// Registered twice, for the memory and for its record.
const ku::log::Category personmemory = ku::log::addCategory("velo.zorvel.personmemory");
const ku::log::Category personmemoryRecord = ku::log::addCategory("velo.zorvel.personmemory");

}  // namespace
}  // namespace log_categories

const TypeRegistration typeRegistration;

namespace log_categories {
namespace {

const ku::log::Category ramp = ku::log::addCategory("velo.zorvel.ramp");
const ku::log::Category socialgraph = ku::log::addCategory("velo.zorvel.socialgraph");
const ku::log::Category recorder = ku::log::addCategory("velo.ZorvelRecorder");

}  // namespace
}  // namespace log_categories
}  // namespace ZV
