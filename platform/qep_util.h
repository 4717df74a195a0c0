/* Privileges and access modes. Main thread, during start-up. */
#ifndef QEP_UTIL_H
#define QEP_UTIL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Takes the privileges that the named process is entitled to. The first platform call of a process. 0 on success. */
int QEP_UTIL_ForceSetPrivileges(const char *process);

/* Sets the access mode of path to mode, an octal text such as "640". 0 on success, -1 otherwise. */
int QEP_UTIL_RemoveAndroidWPerm(const char *path, const char *mode);

/* Gives up root for good. 0 on success, -1 otherwise. */
int QEP_UTIL_DropAndroidRootPrivileges(void);

#ifdef __cplusplus
}
#endif

#endif
