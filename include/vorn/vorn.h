/* Vorn: bundle adjustment of photogrammetric projects.
 *
 * Both functions run one project from its control file to its report and result files and
 * return when it has been read, adjusted and reported, or has failed.
 *
 *   path  control file, full or relative to the current directory; on Windows in the process's
 *         ANSI code page. A null or empty path, a missing file, a directory and a control file that
 *         has the name of one of its own outputs return 0 silently.
 *   flag  non-zero: also write the camera result file ("cam") after a successful adjustment.
 *
 * Result: 1 when the adjustment was completed, 0 otherwise. Diagnostics are text: on the standard
 * output stream (readers, convergence tests, lack of memory), in the report (base name of the
 * control file with the extension "out") and on the error stream (degenerate geometry). No
 * exception leaves them.
 *
 * State of the process. A run changes the current directory to the control file's directory and
 * leaves it changed. Least-squares parameters that a project reads stay in force for later projects
 * of the same process, until the library is unloaded. Everything else is given back, but for the
 * buffers of the two streams. The thread's floating-point state (rounding, precision, traps) may be
 * any: a run sets its own and gives the host's back.
 *
 * One run at a time. A call while a call is running, from whatever thread, does nothing but print
 * "ERROR: Another run is under way in this process; this call does nothing." on the error stream;
 * its result is 0.
 *
 * A host must not
 *   - unload the library during a call;
 *   - change the current directory or the project's files from another thread during a call;
 *   - name a data file like a result of its project, or as a file of the normal equations: it would
 *     be overwritten;
 *   - rely on the current directory, or on default parameters, after a call.
 * docs/hosting.md tells the rest.
 */
#ifndef VORN_VORN_H
#define VORN_VORN_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Runs the project of the control file `path`. */
int32_t VornBundle(const char* path, int32_t flag);

/* Does the same; VornBundle calls it. */
int32_t VornScanBundle(const char* path, int32_t flag);

#ifdef __cplusplus
}
#endif

#endif /* VORN_VORN_H */
