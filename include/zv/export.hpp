#ifndef ZV_EXPORT_HPP
#define ZV_EXPORT_HPP

/// Marks what libzorvel exports; everything else in it is hidden.
#define ZV_API __attribute__((visibility("default")))

#endif
