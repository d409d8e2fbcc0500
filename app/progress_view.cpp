#include "app/progress_view.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string_view>

#include "app/json_progress.h"
#include "text/text_writer.h"

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

namespace vorn::app {
namespace {

bool is_terminal() {
#ifdef _WIN32
  return _isatty(_fileno(stderr)) != 0;
#else
  const char* const kind = std::getenv("TERM");
  return ::isatty(STDERR_FILENO) != 0 && (kind == nullptr || std::strcmp(kind, "dumb") != 0);
#endif
}

void print_iteration(const IterationStatistics& statistics) {
  TextWriter& err = error_output();
  err << "iteration " << fixed(0, 3)(statistics.number) << "   sigma 0 "
      << fixed(3, 12)(statistics.sigma0 * 1e6) << " um   ";
  if (statistics.open_object == nullptr) {
    err << "converged\n";
  } else {
    const NamedParameter open = open_parameter(statistics);
    err << open.kind << ' ' << open.id << ", " << open.name << " still moves\n";
  }
  err.flush();
}

class NoView final : public ProgressView {
 public:
  void show_stage(RunStage) override {}
  void show_progress(RunStage, double) override {}
  void show_iteration(const IterationStatistics&) override {}
  void show_ending(const RunSummary&, const std::vector<std::string>&, ExitStatus) override {}
};

class PlainView : public ProgressView {
 public:
  explicit PlainView(bool iterations) : iterations_(iterations) {}
  void show_stage(RunStage) override {}
  void show_progress(RunStage, double) override {}
  void show_iteration(const IterationStatistics& statistics) override {
    if (!iterations_) return;
    standard_output().flush();
    print_iteration(statistics);
  }
  void show_ending(const RunSummary&, const std::vector<std::string>&, ExitStatus) override {}

 private:
  bool iterations_;
};

// "reading        [##########          ]  50 %", drawn over itself and wiped out at the end.
class BarView final : public PlainView {
 public:
  using PlainView::PlainView;
  ~BarView() override { wipe(); }
  void show_stage(RunStage stage) override {
    wipe();
    if (stage == RunStage::reading || stage == RunStage::writing) show_progress(stage, 0.0);
  }
  void show_progress(RunStage stage, double fraction) override {
    const auto percent = static_cast<int>(fraction * 100.0);
    if (percent == shown_) return;
    shown_ = percent;
    standard_output().flush();
    TextWriter& err = error_output();
    err << '\r' << left_aligned(name_of(stage), kLabelWidth) << '[';
    for (int i = 0; i < kCells; ++i) err << (i * 100 < percent * kCells ? '#' : ' ');
    err << "] ";
    err.integer(percent, 3) << " %";
    err.flush();
    // Whatever else is to be said stands on a line of its own.
    if (percent >= 100) wipe();
  }
  void show_ending(const RunSummary&, const std::vector<std::string>&, ExitStatus) override {
    wipe();
  }

 private:
  static constexpr int kLabelWidth = 15;
  static constexpr int kCells = 40;

  void wipe() {
    if (shown_ < 0) return;
    shown_ = -1;
    constexpr int kWidth = kLabelWidth + kCells + 8;
    error_output() << '\r' << left_aligned("", kWidth) << '\r';
    error_output().flush();
  }

  int shown_ = -1;  // percent; -1: there is no bar
};

}  // namespace

void define_progress_option(CLI::App& parser, ProgressForm& form) {
  const std::map<std::string, ProgressForm> forms = {{"auto", ProgressForm::automatic},
                                                     {"bar", ProgressForm::bar},
                                                     {"plain", ProgressForm::plain},
                                                     {"json", ProgressForm::json}};
  parser
      .add_option(
          "--progress", form,
          "how the error stream tells of the run: a bar and lines (bar), lines (plain), one "
          "JSON object a line (json), or a bar on a terminal and lines otherwise (auto)")
      ->option_text("FORM")
      ->transform(CLI::CheckedTransformer(forms).description(""));
}

std::unique_ptr<ProgressView> make_progress_view(ProgressForm form, bool iterations) {
  if (form == ProgressForm::automatic) {
    form = is_terminal() ? ProgressForm::bar : ProgressForm::plain;
  }
  switch (form) {
    case ProgressForm::bar:
      return std::make_unique<BarView>(iterations);
    case ProgressForm::json:
      return make_json_progress();
    case ProgressForm::none:
      return std::make_unique<NoView>();
    default:
      return std::make_unique<PlainView>(iterations);
  }
}

}  // namespace vorn::app
