#include "quality/diagnosis_words.h"

#include <array>
#include <string_view>
#include <utility>

namespace vorn {

namespace {

constexpr std::size_t kNamed = 6;  // of many objects in one sentence

std::string_view type_in_words(std::string_view type) {
  constexpr std::array<std::pair<std::string_view, std::string_view>, 5> kWords = {
      {{"object_point", "point"},
       {"ap_set", "AP set"},
       {"position_correction", "position correction"},
       {"attitude_correction", "attitude correction"},
       {"orientation", "orientation"}}};
  for (const auto& [name, words] : kWords) {
    if (type == name) return words;
  }
  return type;
}

}  // namespace

std::string enumerated(const std::vector<std::string>& names) {
  std::string text;
  const std::size_t named = names.size() > kNamed ? kNamed - 1 : names.size();
  for (std::size_t i = 0; i < named; ++i) {
    const bool last = i + 1 == names.size();
    text += (i == 0 ? "" : last ? " and " : ", ") + names[i];
  }
  if (named < names.size()) text += " and " + std::to_string(names.size() - named) + " more";
  return text;
}

std::string counted(std::string_view type, const std::vector<std::string>& ids) {
  std::string text(type_in_words(type));
  if (ids.size() > 1) text += 's';
  return text + ' ' + enumerated(ids);
}

std::vector<std::string> ids_of(const std::vector<DiagnosedItem>& items) {
  std::vector<std::string> ids;
  for (const DiagnosedItem& item : items) ids.push_back(item.object_id);
  return ids;
}

std::string in_words(const DiagnosedItem& item) {
  const std::string object = std::string(type_in_words(item.object_type)) + ' ' + item.object_id;
  return item.parameter.empty() ? object : item.parameter + " of " + object;
}

}  // namespace vorn
