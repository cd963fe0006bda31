#ifndef ZV_LOG_CATEGORIES_HPP
#define ZV_LOG_CATEGORIES_HPP

#include <ku/log.hpp>

/// The library's log categories, registered by startup.cpp.
namespace ZV::log_categories {

extern const ku::log::Category emotionalstate;

}  // namespace ZV::log_categories

#endif
