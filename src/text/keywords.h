#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace vorn {

// Keywords of the control file and of the records of the data files. The code of a keyword is its
// position in the table, from 1.
enum class Keyword : std::int32_t {
  none = 0,
  params,
  ls_params,
  camera,
  camera_frame,
  camera_ccd,
  camera_ccd_tr,
  camera_pushbroom,
  image,
  image_frame,
  image_scanner,
  image_geometry,
  ext_ori,
  ext_ori_opk_rot,
  ext_ori_pok_rot,
  ext_ori_opk_fix,
  ext_ori_australis,
  ext_ori_quaternion,
  dlt,
  ext_ori_kratky,
  pmf_linear,
  image_crds,
  obj_crds,
  ctrl_supp,
  ap_set,
  gap,
  australis,
  p12,
  p44,
  inner_or,
  radial_dist,
  decentering_dist,
  in_plane_dist,
  out_of_plane_dist,
  pos_cor,
  att_cor,
  patb_params,
  patb_photos,
  patb_control,
  patb_orient,
  oc_transform,
  stop_dep,
};

// Code of a keyword by exact, case-sensitive comparison; Keyword::none (0) when there is none.
Keyword lookup_keyword(std::string_view text);

// Ends files and lists everywhere.
inline constexpr std::string_view kEndWord = "stop-dep";
// The keywords in the order of their codes, from 1.
std::span<const std::string_view> all_keywords();

}  // namespace vorn
