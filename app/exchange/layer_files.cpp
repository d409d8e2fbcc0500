// Layers as text: comma-separated values and GeoJSON (RFC 7946, with the member "crs" of the 2008
// version, which all readers know, where a coordinate system is given). And points as PLY.

#include <cmath>
#include <filesystem>
#include <optional>

#include "app/exchange/layers.h"
#include "app/exchange/output_file.h"
#include "app/exchange/source.h"
#include "text/csv_field.h"
#include "text/unicode.h"

namespace vorn::exchange {
namespace {

namespace fs = std::filesystem;

void make_folder(const fs::path& path) {
  std::error_code error;
  fs::create_directories(path, error);
  if (!fs::is_directory(path)) throw ExchangeError(path.string() + ": the folder cannot be made");
}

bool is_missing(const FieldValue& value) {
  const auto* const real = std::get_if<double>(&value);
  return real != nullptr && !std::isfinite(*real);
}

void write_csv_layer(const Layer& layer, OutputFile out) {
  const char* separator = "";
  for (const Field& field : layer.fields) {
    out << separator << field.name;
    separator = ",";
  }
  out << '\n';
  for (const Feature& feature : layer.features) {
    separator = "";
    for (const FieldValue& value : feature.values) {
      out << separator;
      separator = ",";
      if (is_missing(value)) continue;
      if (const auto* text = std::get_if<std::string>(&value)) {
        write_csv_field(out, *text);
      } else if (const auto* number = std::get_if<std::int64_t>(&value)) {
        out << *number;
      } else {
        out << std::get<double>(value);
      }
    }
    out << '\n';
  }
}

void write_json_text(OutputFile& out, const std::string& text) {
  constexpr std::string_view kHex = "0123456789abcdef";
  out << '"';
  for (const char c : to_utf8(text)) {
    const auto code = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      out << '\\' << c;
    } else if (code < 0x20) {
      out << "\\u00" << kHex[code >> 4U] << kHex[code & 0xFU];
    } else {
      out << c;
    }
  }
  out << '"';
}

void write_positions(OutputFile& out, const Feature& feature, Shape shape) {
  const char* separator = "";
  out << (shape == Shape::polygon ? "[[" : shape == Shape::line ? "[" : "");
  for (const Vec3& x : feature.vertices) {
    out << separator << '[' << x[0] << ',' << x[1] << ',' << x[2] << ']';
    separator = ",";
  }
  out << (shape == Shape::polygon ? "]]" : shape == Shape::line ? "]" : "");
}

class GeoJsonFile {
 public:
  GeoJsonFile(OutputFile out, const std::string& crs) : out_(out) {
    out_ << "{\"type\":\"FeatureCollection\",\n";
    if (!crs.empty()) {
      out_ << R"("crs":{"type":"name","properties":{"name":"urn:ogc:def:crs:EPSG::)"
           << crs.substr(crs.find(':') + 1) << "\"}},\n";
    }
    out_ << "\"features\":[";
  }
  void add(const Layer& layer, const Feature& feature, bool with_layer) {
    constexpr const char* kTypes[] = {"", "Point", "LineString", "Polygon"};
    out_ << separator_ << "{\"type\":\"Feature\",\"properties\":{";
    separator_ = ",\n";
    const char* comma = "";
    if (with_layer) {
      out_ << "\"layer\":\"" << layer.name << '"';
      comma = ",";
    }
    for (std::size_t i = 0; i < layer.fields.size(); ++i) {
      out_ << comma << '"' << layer.fields[i].name << "\":";
      comma = ",";
      write_value(feature.values[i]);
    }
    out_ << "},\"geometry\":{\"type\":\"" << kTypes[static_cast<std::size_t>(layer.shape)]
         << "\",\"coordinates\":";
    write_positions(out_, feature, layer.shape);
    out_ << "}}";
  }
  void end() { out_ << "\n]}\n"; }

 private:
  void write_value(const FieldValue& value) {
    if (is_missing(value)) {
      out_ << "null";
    } else if (const auto* text = std::get_if<std::string>(&value)) {
      write_json_text(out_, *text);
    } else if (const auto* number = std::get_if<std::int64_t>(&value)) {
      out_ << *number;
    } else {
      out_ << std::get<double>(value);
    }
  }

  OutputFile out_;
  const char* separator_ = "\n";
};

bool has_extension(const fs::path& path, std::initializer_list<const char*> extensions) {
  for (const char* extension : extensions) {
    if (path.extension() == extension) return true;
  }
  return false;
}

bool is_csv_file(const fs::path& path) { return has_extension(path, {".csv", ".CSV", ".txt"}); }
bool is_geojson_file(const fs::path& path) {
  return has_extension(path, {".geojson", ".json", ".GEOJSON", ".JSON"});
}

}  // namespace

std::vector<std::string> csv_files(const std::vector<Layer>& layers, const std::string& path) {
  std::vector<std::string> files;
  const fs::path target(path);
  for (const Layer& layer : layers) {
    fs::path file = target / (std::string(layer.name) + ".csv");
    if (is_csv_file(target)) {
      file = target;
      if (layer.shape != Shape::point || layer.name != std::string_view("points")) {
        file.replace_filename(target.stem().string() + '-' + layer.name +
                              target.extension().string());
      }
    }
    files.push_back(file.string());
  }
  return files;
}

void write_csv(const std::vector<Layer>& layers, const std::string& path) {
  if (!is_csv_file(path)) make_folder(path);
  OutputFiles outputs(OutputMode::replaced);
  const std::vector<std::string> files = csv_files(layers, path);
  for (std::size_t i = 0; i < layers.size(); ++i) {
    write_csv_layer(layers[i], OutputFile(outputs, files[i]));
  }
  finish(outputs);
}

std::vector<std::string> geojson_files(const std::vector<Layer>& layers, const std::string& path) {
  if (is_geojson_file(path)) return {path};
  std::vector<std::string> files;
  for (const Layer& layer : layers) {
    if (layer.shape == Shape::none) continue;
    files.push_back((fs::path(path) / (std::string(layer.name) + ".geojson")).string());
  }
  return files;
}

void write_geojson(const std::vector<Layer>& layers, const std::string& path,
                   const std::string& crs) {
  const bool in_one_file = is_geojson_file(path);
  if (!in_one_file) make_folder(path);
  OutputFiles outputs(OutputMode::replaced);
  std::optional<GeoJsonFile> out;
  const std::vector<std::string> files = geojson_files(layers, path);
  auto file = files.begin();
  for (const Layer& layer : layers) {
    if (layer.shape == Shape::none) continue;
    if (!out || !in_one_file) {
      if (out) out->end();
      out.emplace(OutputFile(outputs, *file++), crs);
    }
    for (const Feature& feature : layer.features) out->add(layer, feature, in_one_file);
  }
  if (out) out->end();
  finish(outputs);
}

void write_ply(const BundleProject& project, const std::string& path) {
  OutputFiles outputs(OutputMode::replaced);
  OutputFile out(outputs, path);
  out << "ply\nformat ascii 1.0\nelement vertex " << project.object_points.count() << '\n';
  for (const char* name : {"x", "y", "z"}) out << "property double " << name << '\n';
  for (const char* name : {"red", "green", "blue"}) out << "property uchar " << name << '\n';
  out << "end_header\n";
  for (const ObjectPoint& point : project.object_points) {
    const char* colour = " 128 128 128\n";
    if (point.type == PointType::control) colour = " 255 0 0\n";
    if (point.type == PointType::check) colour = " 0 0 255\n";
    out << point.xyz[0] << ' ' << point.xyz[1] << ' ' << point.xyz[2] << colour;
  }
  finish(outputs);
}

}  // namespace vorn::exchange
