#include <filesystem>
#include <string>
#include <vector>

#include "ovo/detail/StageData.h"

namespace ovo::detail {

namespace fs = std::filesystem;

namespace {

// Lays the edits of one record over that of the same path.
void mergeSpec(const pxr::SdfLayerRefPtr& from, const pxr::SdfPath& path,
               const pxr::SdfLayerRefPtr& to) {
  const pxr::SdfSpecType type = from->GetSpecType(path);
  if (type == pxr::SdfSpecTypePrim) {
    if (!to->HasSpec(path)) pxr::SdfCreatePrimInLayer(to, path);
  } else if (type == pxr::SdfSpecTypeAttribute) {
    const pxr::SdfAttributeSpecHandle spec = from->GetAttributeAtPath(path);
    if (!spec) return;
    if (!to->HasSpec(path))
      pxr::SdfJustCreatePrimAttributeInLayer(to, path, spec->GetTypeName(), spec->GetVariability(),
                                             spec->IsCustom());
  } else if (type == pxr::SdfSpecTypeRelationship) {
    if (!to->HasSpec(path))
      pxr::SdfRelationshipSpec::New(to->GetPrimAtPath(path.GetPrimPath()), path.GetName(), false);
  } else if (type != pxr::SdfSpecTypePseudoRoot) {
    return;
  }
  for (const pxr::TfToken& field : from->ListFields(path)) {
    if (pxr::SdfSchema::GetInstance().HoldsChildren(field)) continue;
    pxr::VtValue value;
    if (!from->HasField(path, field, &value)) continue;
    // An `over` says nothing about what is defined elsewhere.
    if (field == pxr::SdfFieldKeys->Specifier && value == pxr::VtValue(pxr::SdfSpecifierOver))
      continue;
    if (field == pxr::SdfFieldKeys->TypeName && type == pxr::SdfSpecTypeAttribute) continue;
    // An edit's default value hides weaker samples; within one layer it would not.
    if (field == pxr::SdfFieldKeys->Default &&
        !from->HasField(path, pxr::SdfFieldKeys->TimeSamples))
      to->EraseField(path, pxr::SdfFieldKeys->TimeSamples);
    to->SetField(path, field, value);
  }
}

// A file name as it has to be written in another folder.
std::string movedName(const pxr::SdfLayerRefPtr& from, const std::string& name,
                      const std::string& folder) {
  if (name.empty() || name[0] == '/' || name.find("://") != std::string::npos || name[0] == '`')
    return name;
  const std::string whole = from->ComputeAbsolutePath(name);
  std::error_code failed;
  // Names that are looked for on a search path mean the same everywhere.
  if (whole.empty() || whole[0] != '/') return name;
  const bool relative = name.compare(0, 2, "./") == 0 || name.compare(0, 3, "../") == 0;
  if (!relative && !fs::exists(whole, failed)) return name;
  const std::string moved = fs::path(whole).lexically_relative(folder).string();
  return moved.empty() ? whole : moved.compare(0, 3, "../") == 0 ? moved : "./" + moved;
}

// Whether a value's text is one that the parser reads.
bool isReadable(const std::string& text) {
  pxr::TfErrorMark errors;
  const bool isRead =
      pxr::SdfLayer::CreateAnonymous("value.usda")
          ->ImportFromString("#usda 1.0\ndef \"a\"\n{\n    unknown a = " + text + "\n}\n");
  errors.Clear();
  return isRead;
}

// What OpenUSD does not know, metadata and values of unknown types, it keeps as text. Of some, such
// as paths, its parser keeps none, and of file names with an @ in them not the marks around them:
// the file could not be read again.
void dropValuesWithoutText(const pxr::SdfLayerRefPtr& layer) {
  std::vector<std::pair<pxr::SdfPath, pxr::TfToken>> lost;
  layer->Traverse(pxr::SdfPath::AbsoluteRootPath(), [&](const pxr::SdfPath& path) {
    for (const pxr::TfToken& field : layer->ListFields(path)) {
      pxr::SdfUnregisteredValue value;
      if (!layer->HasField(path, field, &value) || !value.GetValue().IsHolding<std::string>())
        continue;
      const std::string& text = value.GetValue().UncheckedGet<std::string>();
      if (text.empty() || (text.find('@') != std::string::npos && !isReadable(text)))
        lost.emplace_back(path, field);
    }
  });
  for (const auto& [path, field] : lost) layer->EraseField(path, field);
}

}  // namespace

pxr::SdfLayerRefPtr mergeLayers(const StageData& stage, const std::string& folder) {
  const pxr::SdfLayerRefPtr merged = pxr::SdfLayer::CreateAnonymous("merged.usda");
  const pxr::SdfChangeBlock oneChange;
  merged->TransferContent(stage.root);
  if (stage.session) {
    std::vector<pxr::SdfPath> paths;
    stage.session->Traverse(pxr::SdfPath::AbsoluteRootPath(),
                            [&paths](const pxr::SdfPath& path) { paths.push_back(path); });
    // Parents before what is below them: the traversal gives them last.
    for (auto path = paths.rbegin(); path != paths.rend(); ++path)
      mergeSpec(stage.session, *path, merged);
  }

  dropValuesWithoutText(merged);

  // Names of files hold from the folder of the opened file.
  const std::string oldFolder = fs::path(stage.root->GetRealPath()).parent_path().string();
  if (stage.root->IsAnonymous() || oldFolder == folder) return merged;
  for (const std::string& name : merged->GetCompositionAssetDependencies()) {
    const std::string moved = movedName(stage.root, name, folder);
    if (moved != name) merged->UpdateCompositionAssetDependency(name, moved);
  }
  std::vector<pxr::SdfPath> attributes;
  merged->Traverse(pxr::SdfPath::AbsoluteRootPath(), [&](const pxr::SdfPath& path) {
    if (merged->GetSpecType(path) == pxr::SdfSpecTypeAttribute) attributes.push_back(path);
  });
  const auto move = [&](pxr::VtValue& value) {
    if (value.IsHolding<pxr::SdfAssetPath>()) {
      value = pxr::SdfAssetPath(
          movedName(stage.root, value.UncheckedGet<pxr::SdfAssetPath>().GetAssetPath(), folder));
      return true;
    }
    if (!value.IsHolding<pxr::VtArray<pxr::SdfAssetPath>>()) return false;
    pxr::VtArray<pxr::SdfAssetPath> names = value.UncheckedGet<pxr::VtArray<pxr::SdfAssetPath>>();
    for (pxr::SdfAssetPath& name : names)
      name = pxr::SdfAssetPath(movedName(stage.root, name.GetAssetPath(), folder));
    value = pxr::VtValue(names);
    return true;
  };
  for (const pxr::SdfPath& path : attributes) {
    // Damaged files have attributes whose names are none; they have no record to ask.
    const pxr::SdfAttributeSpecHandle spec = merged->GetAttributeAtPath(path);
    if (!spec) continue;
    const std::string type = spec->GetTypeName().GetAsToken().GetString();
    if (type != "asset" && type != "asset[]") continue;
    pxr::VtValue value;
    if (merged->HasField(path, pxr::SdfFieldKeys->Default, &value) && move(value))
      merged->SetField(path, pxr::SdfFieldKeys->Default, value);
    for (const double time : merged->ListTimeSamplesForPath(path))
      if (merged->QueryTimeSample(path, time, &value) && move(value))
        merged->SetTimeSample(path, time, value);
  }
  return merged;
}

}  // namespace ovo::detail
