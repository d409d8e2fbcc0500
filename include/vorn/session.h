/* Vorn sessions: open a project, choose settings, run it under observation, read results as arrays.
 *
 * This header belongs to the library vorn_session. The library of vorn/vorn.h, with its two
 * functions, stands beside it and neither needs the other. docs/session.md is the manual: settings,
 * tables and columns, a complete example.
 *
 *   vorn_session* session = NULL;
 *   int32_t status = vorn_session_open("flight.ctl", &session);
 *   if (status == VORN_OK) status = vorn_session_run(session);
 *   if (status < 0) fprintf(stderr, "%s\n", vorn_session_error(session));
 *   ...
 *   vorn_session_close(session);
 *
 * Status. Functions return VORN_OK (0), another success (> 0) or an error (< 0). A function that
 * returns an error has stored nothing in its results, unless it says otherwise, and has left its
 * reason in vorn_session_error. "Memory" stands below for VORN_ERROR_MEMORY: there was not enough
 * of it. No C++ exception leaves a function, and nothing is printed.
 *
 * Texts are zero-terminated, identifiers in the bytes of the project's files, everything else in
 * UTF-8; paths in the encoding of the C library (on Windows the ANSI code page). Texts that
 * functions give belong to the session: they stay valid until the session is opened, checked, run
 * or closed again, those of vorn_session_error until the next function fails. All lengths are in
 * metres, all angles in radians, all times in seconds, unless the unit of a column says otherwise.
 *
 * Threads. A session serves one thread at a time. Several sessions may be open; one run or check
 * goes on at a time in a process: another one returns VORN_ERROR_BUSY. The current directory is
 * changed during runs and checks and is what it was afterwards, and so is the thread's
 * floating-point state. Settings of one session or project never reach another.
 */
#ifndef VORN_SESSION_H
#define VORN_SESSION_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct vorn_session vorn_session;

/* ---- status --------------------------------------------------------------------------------- */

enum {
  VORN_OK = 0,              /* done; of a run: completed and converged */
  VORN_NOT_CONVERGED = 1,   /* run completed, results are there; the iterations ended too early */
  VORN_NO_FIGURES = 2,      /* run completed, results are there but for standard deviations and the
                               other figures of quality: the normal equations at the end have no
                               usable inverse; whether it converged is the statistic "converged" */
  VORN_ERROR_NULL = -1,     /* an argument is NULL that must not be */
  VORN_ERROR_ARGUMENT = -2, /* an argument has a value that it cannot have, or a name is unknown */
  VORN_ERROR_ORDER = -3,    /* not now: no results yet, or called from an observer */
  VORN_ERROR_RANGE = -4,    /* an index is negative or too large */
  VORN_ERROR_SIZE = -5,     /* an array is too small */
  VORN_ERROR_TYPE = -6,     /* numbers were asked of a column of texts, or the other way round */
  VORN_ERROR_FILE = -7,     /* a file cannot be read or written, or must not be replaced */
  VORN_ERROR_DATA = -8,     /* the data files have errors: see the findings and the messages */
  VORN_ERROR_FAILED = -9,   /* the adjustment failed: see the findings and the messages */
  VORN_ERROR_STOPPED = -10, /* the observer stopped the run */
  VORN_ERROR_BUSY = -11,    /* a run or check is going on in this process */
  VORN_ERROR_MEMORY = -12,  /* not enough memory */
  VORN_ERROR_INTERNAL = -13 /* a fault of this library */
};

/* What a status means, in words; "unknown status" for any other number. Never NULL. */
const char* vorn_status_text(int32_t status);

/* The version, "0.1.0". Never NULL. */
const char* vorn_session_version(void);

/* Why the last function that failed on this session failed: a sentence; empty when none has. For
 * NULL, the same of the last function of this thread that failed without a session: an opening, or
 * a NULL in place of one. Never NULL. */
const char* vorn_session_error(const vorn_session* session);

/* ---- sessions ------------------------------------------------------------------------------- */

/* Opens a session on the project of a control file, full path or relative to the current directory.
 * No data file is read yet. *session becomes NULL on errors.
 *   VORN_ERROR_NULL     path or session is NULL
 *   VORN_ERROR_FILE     there is no file of that name, or it is a directory or cannot be read
 *   VORN_ERROR_MEMORY */
int32_t vorn_session_open(const char* path, vorn_session** session);

/* Closes a session and frees everything that it gave. NULL is no error and does nothing.
 *   VORN_ERROR_ORDER    called from the observer of this session: it stays open */
int32_t vorn_session_close(vorn_session* session);

/* ---- settings: names, values and defaults in docs/session.md --------------------------------- */

/* Sets a setting that is a number; switches are 0 or 1. It holds for later runs of this session.
 *   VORN_ERROR_NULL     session or name is NULL
 *   VORN_ERROR_ARGUMENT no number setting has this name, or it cannot have this value
 *   VORN_ERROR_ORDER    called from an observer
 *   VORN_ERROR_MEMORY */
int32_t vorn_session_set_number(vorn_session* session, const char* name, double value);

/* Sets a setting that is a text: "robust", "kernel".
 *   VORN_ERROR_NULL     session, name or value is NULL
 *   VORN_ERROR_ARGUMENT no text setting has this name, or it cannot have this value
 *   VORN_ERROR_ORDER    called from an observer
 *   VORN_ERROR_MEMORY */
int32_t vorn_session_set_text(vorn_session* session, const char* name, const char* value);

/* Stores a setting that is a number.
 *   VORN_ERROR_NULL     an argument is NULL
 *   VORN_ERROR_ARGUMENT no number setting has this name */
int32_t vorn_session_get_number(vorn_session* session, const char* name, double* value);

/* ---- observation ---------------------------------------------------------------------------- */

enum { VORN_EVENT_STAGE = 0, VORN_EVENT_PROGRESS = 1, VORN_EVENT_ITERATION = 2 };
enum {
  VORN_STAGE_READING = 0,
  VORN_STAGE_INITIALISATION = 1,
  VORN_STAGE_ITERATIONS = 2,
  VORN_STAGE_WRITING = 3
};

/* What an observer is told. Later versions may append members. */
typedef struct vorn_event {
  int32_t kind;  /* VORN_EVENT_... */
  int32_t stage; /* VORN_STAGE_..., the running one */
  /* VORN_EVENT_PROGRESS, in reading and writing: the part that is done, 0 to 1, never less than
     before; otherwise 0. */
  double fraction;
  /* VORN_EVENT_ITERATION; otherwise 0 and empty texts. */
  int32_t iteration; /* from 1 */
  int32_t redundancy;
  double sigma0;     /* a posteriori [m]; 0 without redundancy */
  double vtpv;       /* weighted sum of squared residuals [m^2] */
  int32_t converged; /* 1: all corrections were within their limits */
  /* Where it has not converged, a parameter that still moves: kind of its object ("EO", "point",
     "AP set", ...), identifier, name. Valid during the call. */
  const char* moving_type;
  const char* moving_id;
  const char* moving_parameter;
} vorn_event;

/* Answers of an observer; any other number counts as VORN_CONTINUE. */
enum {
  VORN_CONTINUE = 0,
  /* Finish with what there is: the running iteration is the last one; before the iterations, the
     first one will be; while results are written it changes nothing. The run returns
     VORN_NOT_CONVERGED unless it has converged. */
  VORN_FINISH = 1,
  /* Stop: the run returns VORN_ERROR_STOPPED and has no results, after the running iteration, the
     data file that is being read, or the section that is being written. Result files of earlier
     runs are as they were. */
  VORN_STOP = 2
};

/* Called in the thread of the run. It may call vorn_session_error, vorn_session_get_number and
 * functions of other sessions that neither run nor check; any other function of this session
 * returns VORN_ERROR_ORDER. It must return: no longjmp, no exception. */
typedef int32_t (*vorn_observer)(const vorn_event* event, void* user);

/* Sets the observer of later runs; `user` is handed to it. NULL: nobody observes, at no cost.
 *   VORN_ERROR_NULL     session is NULL
 *   VORN_ERROR_ORDER    called from an observer */
int32_t vorn_session_set_observer(vorn_session* session, vorn_observer observer, void* user);

/* ---- running -------------------------------------------------------------------------------- */

/* Reads the project anew, adjusts it and writes its files unless the setting "files" is 0. What a
 * former run or check of this session gave is discarded first.
 *   VORN_OK, VORN_NOT_CONVERGED, VORN_NO_FIGURES    there are results
 *   VORN_ERROR_NULL     session is NULL
 *   VORN_ERROR_ORDER    called from an observer of this session
 *   VORN_ERROR_BUSY     a run or check is going on in this process; what this session had stays
 *   VORN_ERROR_FILE     the control file cannot be read, a result cannot be written, or would
 *                       replace what it must not: the text names the first such file
 *   VORN_ERROR_DATA     the data files cannot be read, or have errors and "lenient" is 0
 *   VORN_ERROR_FAILED   the adjustment has no solution; findings say what the network lacks
 *   VORN_ERROR_STOPPED  the observer answered VORN_STOP
 *   VORN_ERROR_MEMORY
 * After an error there are no results, but messages and findings. Files: results are replaced as a
 * whole when the run has completed; an error leaves those of earlier runs as they were and the
 * report of the failed run, where one was begun, beside them as <base name>.failed.out. */
int32_t vorn_session_run(vorn_session* session);

/* Looks the project through without adjusting it; only messages and findings come of it. What a
 * former run or check of this session gave is discarded first.
 *   VORN_OK             looked through; whatever was found stands in the findings
 *   VORN_ERROR_NULL     session is NULL
 *   VORN_ERROR_ORDER    called from an observer of this session
 *   VORN_ERROR_BUSY     a run or check is going on in this process
 *   VORN_ERROR_FILE     the control file cannot be read
 *   VORN_ERROR_MEMORY */
int32_t vorn_session_check(vorn_session* session);

/* ---- messages and findings of the last run or check ------------------------------------------ */

/* What readers and adjustment had to say, line by line; empty before the first run, and when there
 * was nothing. NULL when session is NULL or when called from an observer of this session. */
const char* vorn_session_messages(vorn_session* session);

/* Something wrong, doubtful or worth knowing. Texts that do not apply are empty, never NULL. */
typedef struct vorn_finding {
  const char* severity;    /* "error", "warning", "note" */
  const char* code;        /* "number-expected", "no_control", ...: docs/checking.md; those with
                              underscores are the diagnosis of a network */
  const char* file;        /* as the control file names it */
  int32_t line;            /* from 1; 0: no line is meant */
  int32_t column;          /* from 1, in characters; likewise */
  const char* object_type; /* "image-point", "orientation", ... */
  const char* object_id;
  const char* image; /* of an image point */
  const char* parameter;
  const char* message; /* a sentence */
  const char* help;    /* what usually helps */
} vorn_finding;

/* Stores the number of findings.
 *   VORN_ERROR_NULL     an argument is NULL
 *   VORN_ERROR_ORDER    called from an observer of this session */
int32_t vorn_session_count_findings(vorn_session* session, int64_t* count);

/* Stores a finding, counted from 0: those of the data files in the order of reading, then those of
 * the network, errors first.
 *   VORN_ERROR_NULL     session or finding is NULL
 *   VORN_ERROR_ORDER    called from an observer of this session
 *   VORN_ERROR_RANGE    there is no finding of this index */
int32_t vorn_session_finding(vorn_session* session, int64_t index, vorn_finding* finding);

/* ---- results of the last run: tables, described in docs/session.md --------------------------- */

/* All of them return
 *   VORN_ERROR_NULL     an argument is NULL that is not said to be allowed to
 *   VORN_ERROR_ORDER    there are no results: nothing was run yet, the last run failed, a check
 *                       came after it, or the call came from an observer of this session
 *   VORN_ERROR_ARGUMENT no table, column or statistic has this name
 *   VORN_ERROR_MEMORY
 * and what stands with each. */

/* Stores the number of tables, and the name of one, counted from 0.
 *   VORN_ERROR_RANGE    there is no table of this index */
int32_t vorn_session_count_tables(vorn_session* session, int32_t* count);
int32_t vorn_session_table_name(vorn_session* session, int32_t index, const char** name);

/* Stores the number of rows and of columns of a table. */
int32_t vorn_session_count_rows(vorn_session* session, const char* table, int64_t* count);
int32_t vorn_session_count_columns(vorn_session* session, const char* table, int32_t* count);

/* Stores the name of a column, counted from 0, and its unit: "m", "m2", "rad", "s", "1" (a pure
 * number), "count" (an integer), "flag" (0 or 1), "unit" (each row names its own in the column
 * "unit"): columns of numbers; "id", "text": columns of texts. name or unit may be NULL.
 *   VORN_ERROR_RANGE    there is no column of this index */
int32_t vorn_session_column(vorn_session* session, const char* table, int32_t index,
                            const char** name, const char** unit);

/* Stores a column of numbers, row by row; what is not defined is NaN. `capacity` is the number of
 * doubles that `values` has room for. `count`, which may be NULL, becomes the number of rows, also
 * with VORN_ERROR_SIZE. With capacity 0, values may be NULL.
 *   VORN_ERROR_SIZE     capacity is smaller than the number of rows
 *   VORN_ERROR_TYPE     the column holds texts */
int32_t vorn_session_numbers(vorn_session* session, const char* table, const char* column,
                             double* values, int64_t capacity, int64_t* count);

/* The same for a column of texts: pointers to texts of the session; none is NULL.
 *   VORN_ERROR_SIZE     capacity is smaller than the number of rows
 *   VORN_ERROR_TYPE     the column holds numbers */
int32_t vorn_session_texts(vorn_session* session, const char* table, const char* column,
                           const char** values, int64_t capacity, int64_t* count);

/* Stores a number of the run as a whole: a column of the table "statistics", which has one row. */
int32_t vorn_session_statistic(vorn_session* session, const char* name, double* value);

#ifdef __cplusplus
}
#endif

#endif /* VORN_SESSION_H */
