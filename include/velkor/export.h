/* The one export macro of the library. Everything not marked VELKOR_API is hidden
 * (-fvisibility=hidden on ELF; no dllexport on Windows). */
#ifndef VELKOR_EXPORT_H
#define VELKOR_EXPORT_H

#if defined(_WIN32)
#if defined(VELKOR_BUILDING)
#define VELKOR_API __declspec(dllexport)
#else
#define VELKOR_API __declspec(dllimport)
#endif
#else
#define VELKOR_API __attribute__((visibility("default")))
#endif

/* Types whose instantiations must keep default visibility on ELF, because exported templates are
 * instantiated over them (a template instance is never more visible than its arguments). */
#if defined(_WIN32)
#define VELKOR_VISIBLE
#else
#define VELKOR_VISIBLE __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
#define VELKOR_EXTERN_C extern "C"
#else
#define VELKOR_EXTERN_C
#endif

#endif /* VELKOR_EXPORT_H */
