#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "geometry/vec3.h"

namespace vorn {

class BundleProject;
class FinalSystem;

// What holds a network and what does not, in words and numbers. It names objects by their
// identifiers and outlives the project it was made from.

// An unknown, or an object as a whole.
struct DiagnosedItem {
  std::string object_type;  // "object_point", "orientation", "ap_set", "position_correction",
                            // "attitude_correction", "image", "camera"
  std::string object_id;
  std::string parameter;  // empty: the object as a whole

  bool operator==(const DiagnosedItem&) const = default;
};

// What findings call it: "point 17", "Zo of orientation P82", "K1 of AP set s1".
[[nodiscard]] std::string in_words(const DiagnosedItem& item);

// The seven motions that change no image: translations and rotations along and about the three
// axes, and the change of scale.
constexpr std::size_t kNumMotions = 7;
constexpr std::array<std::string_view, kNumMotions> kMotionNames = {
    "translation_x", "translation_y", "translation_z", "rotation_x",
    "rotation_y",    "rotation_z",    "scale"};
// Motions whose quotient is below this are free.
constexpr double kFreeQuotient = 1e-14;
// A factorisation whose smallest pivot ratio is below this has passed by rounding only. In long
// sums rounding leaves more: runs are looked into below some thousand times this.
constexpr double kSmallestPivotRatio = 1e-13;
// |r| of inseparable parameters.
constexpr double kInseparableCorrelation = 0.9999;

enum class MotionKind : std::uint8_t { translation, rotation, scale, similarity };
// "translation", "rotation", "scale", "similarity".
[[nodiscard]] std::string_view motion_kind_name(MotionKind kind);

// A free motion of a part of the network.
struct FreeMotion {
  MotionKind kind = MotionKind::translation;
  Vec3 axis{};     // unit vector of a translation, rotation or similarity; 0 for a scale
  Vec3 through{};  // a point of the axis, or the centre of a scale; 0 for a translation
  bool has_axis() const { return kind != MotionKind::scale; }
  bool has_place() const { return kind != MotionKind::translation; }
};

// How firmly one of the seven motions about the centroid is held, and by what.
struct BasicMotion {
  double quotient = 0.0;
  // Class of observations (as the groups of variance components are called) and its part of
  // g'Ng; the parts add up to 1. Empty for a free motion.
  std::vector<std::pair<std::string_view, double>> held_by;
};

// A part of the network that measured points connect.
struct NetworkComponent {
  std::int32_t component = 0;  // counted from 1
  std::int32_t images = 0;
  std::int32_t points = 0;
  std::int32_t control_points = 0;              // with an observed or fixed coordinate
  std::int32_t defect = 0;                      // free motions
  std::array<double, kNumMotions> quotients{};  // ascending
  std::vector<FreeMotion> motions;
  std::array<BasicMotion, kNumMotions> basic;  // in the order of kMotionNames
};

struct DiagnosedValue {
  DiagnosedItem unknown;
  double value = 0.0;
};

// An eigenvalue of N scaled to a unit diagonal, with the unknowns that its vector moves most.
struct DiagnosedEigenvalue {
  double value = 0.0;
  std::vector<std::pair<DiagnosedItem, double>> parts;  // unknown and its share
};

enum class FindingSeverity : std::uint8_t { error, warning, info };
// "error", "warning", "info".
[[nodiscard]] std::string_view severity_name(FindingSeverity severity);

struct DiagnosisFinding {
  std::string_view code;  // "no_control", "weak_intersection", ...
  FindingSeverity severity = FindingSeverity::error;
  std::int32_t component = 0;          // 0: none
  std::int32_t defect = -1;            // -1: none
  std::vector<DiagnosedItem> objects;  // the main one first
  std::string message;                 // a sentence
  std::string remedy;                  // a sentence
  std::vector<std::pair<std::string_view, double>> values;
};

struct Diagnosis {
  std::vector<NetworkComponent> components;
  // 1/(N_ii Q_ii), ascending; none of a large sound network, whose figures of quality have them.
  std::vector<DiagnosedValue> smallest_tolerances;
  std::vector<DiagnosedValue> smallest_pivots;  // p_i^2/N_ii, ascending
  std::vector<DiagnosedEigenvalue> smallest_eigenvalues;
  bool has_eigenvalues = false;
  DiagnosedItem failed_at;                 // without type: no factorisation stopped
  std::vector<DiagnosisFinding> findings;  // errors first
  // The component of every object point, by the place of its unknowns (index / 3); 0: none.
  std::vector<std::int32_t> component_of_point;

  [[nodiscard]] bool has_errors() const;
  // Errors first, those of a severity as they are.
  void sort_findings();
  // Whether nothing of an adjusted network can be relied on: an error says why the factorisation
  // stopped, or concerns more than the point that it names.
  [[nodiscard]] bool condemns_results() const;
};

// Diagnoses a project whose unknowns are registered and whose normal equations have their
// structure, at the current values. The normal equations are formed anew and used up.
[[nodiscard]] Diagnosis diagnose(BundleProject& project);

// The same where the unknowns were before the iterations, which may have diverged. They keep the
// values that they have.
[[nodiscard]] Diagnosis diagnose_initially(BundleProject& project);

// Diagnoses a network whose figures of quality are there, from what they were made of: the
// equations at the final values, and the largest angles of intersection, by points. Nothing where
// all that can be known is asked for: of a small network, and of one that has a free datum or
// undetermined points.
[[nodiscard]] std::optional<Diagnosis> diagnose_sound(const BundleProject& project,
                                                      const FinalSystem& system,
                                                      const std::vector<double>& angles);

// A completed run that needs a word: at the values to which damped steps led, which cannot diverge
// (approximate values may lie where nothing can be said, such as a point beside a projection
// centre); otherwise where the unknowns were before the iterations.
[[nodiscard]] Diagnosis diagnose_completed(BundleProject& project);

// Whether the last factorisation may have passed by rounding only, which a diagnosis shows: it has
// a tiny pivot ratio. Weights of conditions can be the reason, too.
[[nodiscard]] bool is_doubtful(const BundleProject& project);

}  // namespace vorn
