/* Adjusts projects under observation and prints what came of them.
 *
 * usage: vorn_watch PROJECT...
 *
 * Exit status: 0 when all projects converged, 1 when one did not, 2 for wrong usage.
 */
#include <stdio.h>
#include <stdlib.h>

#include "vorn/session.h"

/* A line for each stage and iteration; `user` counts the iterations. */
static int32_t watch(const vorn_event* event, void* user) {
  static const char* const stages[] = {"reading", "initialisation", "iterations", "writing"};
  if (event->kind == VORN_EVENT_STAGE) printf("  %s\n", stages[event->stage]);
  if (event->kind == VORN_EVENT_ITERATION) {
    int* const iterations = (int*)user;
    ++*iterations;
    printf("  iteration %d: sigma 0 %.3f um %s\n", (int)event->iteration, event->sigma0 * 1e6,
           event->converged ? "converged" : event->moving_id);
  }
  return VORN_CONTINUE;
}

static void print_findings(vorn_session* session) {
  int64_t count = 0;
  if (vorn_session_count_findings(session, &count) != VORN_OK) return;
  for (int64_t i = 0; i < count; ++i) {
    vorn_finding finding;
    if (vorn_session_finding(session, i, &finding) != VORN_OK) return;
    printf("  %s %s %s:%d: %s\n", finding.severity, finding.code, finding.file, (int)finding.line,
           finding.message);
  }
}

/* Prints the first rows of the adjusted points with their standard deviations. */
static int32_t print_points(vorn_session* session) {
  static const char* const columns[6] = {"x", "y", "z", "sd_x", "sd_y", "sd_z"};
  int64_t rows = 0;
  int32_t status = vorn_session_count_rows(session, "points", &rows);
  if (status != VORN_OK) return status;
  const char** ids = malloc((size_t)rows * sizeof *ids);
  double* values = malloc(6 * (size_t)rows * sizeof *values);
  if (ids == NULL || values == NULL) status = VORN_ERROR_MEMORY;
  if (status == VORN_OK) status = vorn_session_texts(session, "points", "id", ids, rows, NULL);
  for (int k = 0; k < 6 && status == VORN_OK; ++k) {
    status = vorn_session_numbers(session, "points", columns[k], values + k * rows, rows, NULL);
  }
  for (int64_t i = 0; i < rows && i < 3 && status == VORN_OK; ++i) {
    printf("  point %s:", ids[i]);
    for (int k = 0; k < 6; ++k) printf(" %.4f", values[k * rows + i]);
    printf("\n");
  }
  free(ids);
  free(values);
  return status;
}

static int adjust(const char* path) {
  vorn_session* session = NULL;
  int iterations = 0;
  double sigma0 = 0.0;
  printf("%s\n", path);
  int32_t status = vorn_session_open(path, &session);
  if (status == VORN_OK) status = vorn_session_set_observer(session, watch, &iterations);
  if (status == VORN_OK) status = vorn_session_run(session);
  const int converged = status == VORN_OK;
  print_findings(session);
  if (status >= 0) status = vorn_session_statistic(session, "sigma0_posterior", &sigma0);
  if (status == VORN_OK) {
    printf("  %d iterations, sigma 0 %.3f um\n", iterations, sigma0 * 1e6);
    status = print_points(session);
  }
  if (status < 0) printf("  %s: %s\n", vorn_status_text(status), vorn_session_error(session));
  vorn_session_close(session);
  return converged && status == VORN_OK;
}

int main(int argc, char** argv) {
  if (argc < 2) {
    fprintf(stderr, "usage: vorn_watch PROJECT...\n");
    return 2;
  }
  int failed = 0;
  for (int i = 1; i < argc; ++i) failed += !adjust(argv[i]);
  return failed > 0;
}
