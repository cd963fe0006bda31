#ifndef KU_EXPORT_HPP
#define KU_EXPORT_HPP

/// Marks what libku exports; everything else in it is hidden.
#define KU_API __attribute__((visibility("default")))

#endif
