// Symbol visibility of the library's exported classes and functions.
#ifndef CTR_EXPORT_H
#define CTR_EXPORT_H

#if defined(CTR_STATIC_DEFINE)
#define CTR_API
#else
#define CTR_API __attribute__((visibility("default")))
#endif

#endif
