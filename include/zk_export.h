/* Export and linkage macros shared by every public header of libapi_c. */
#ifndef ZK_EXPORT_H
#define ZK_EXPORT_H

#if defined(ZK_BUILDING_LIBRARY)
#define ZK_API __attribute__((visibility("default")))
#else
#define ZK_API
#endif

#ifdef __cplusplus
#define ZK_EXTERN_C_BEGIN extern "C" {
#define ZK_EXTERN_C_END }
#else
#define ZK_EXTERN_C_BEGIN
#define ZK_EXTERN_C_END
#endif

#endif /* ZK_EXPORT_H */
