/// \file
/// A composed stage: the tree of prims, each with its opinions from strong to weak.
///
/// Composition itself is Pcp's. What it gives is laid down here once, when a stage opens, so that
/// every read after that is a walk over plain records that nobody changes: this is what makes reads
/// safe from several threads.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "ovo/LayerUses.h"
#include "ovo/OpenOptions.h"
#include "ovo/Path.h"
#include "ovo/Stage.h"
#include "ovo/Token.h"
#include "ovo/detail/OpenUsd.h"
#include "ovo/detail/ReadContext.h"
#include "ovo/detail/Runtime.h"
#include "ovo/detail/Schema.h"
#include "ovo/detail/TextGuard.h"

namespace ovo::detail {

class StageData;

/// One layer's say about one prim.
struct Opinion {
  pxr::SdfLayer* layer = nullptr;
  pxr::SdfPath path;                   ///< the prim's path in that layer
  pxr::SdfLayerOffset stageFromLayer;  ///< times
  pxr::PcpNodeRef node;                ///< where it comes from; none for what an edit added since

  [[nodiscard]] pxr::SdfPath property(const pxr::TfToken& name) const {
    return path.AppendProperty(name);
  }
  [[nodiscard]] double stageTime(double layerTime) const { return stageFromLayer * layerTime; }
  [[nodiscard]] double layerTime(double stageTime) const {
    return stageFromLayer.GetInverse() * stageTime;
  }
};

/// Nodes are made once a path and stay where they are; recomposing fills them anew.
struct PrimNode {
  StageData* stage = nullptr;
  PrimNode* parent = nullptr;
  std::vector<PrimNode*> children;
  pxr::SdfPath sdfPath;
  Path path;
  Token name;
  Token typeName;
  const PrimType* type = nullptr;
  std::vector<Opinion> opinions;
  pxr::SdfSpecifier specifier = pxr::SdfSpecifierOver;
  bool alive = false;  ///< false for what is no longer composed
  bool active = true;
  bool defined = false;
  bool abstract = false;
  bool instance = false;
  bool instanceProxy = false;
};

/// Layers that could not be read, by their names: which thread finds one first differs from run to
/// run.
struct ByName {
  bool operator()(const MissingLayer& a, const MissingLayer& b) const {
    return std::tie(a.file, a.from, a.prim.asString(), a.arc) <
           std::tie(b.file, b.from, b.prim.asString(), b.arc);
  }
};
using MissingLayers = std::set<MissingLayer, ByName>;

class StageData {
 public:
  /// \p session is null for a scene that only lives in memory: edits then go to \p root itself.
  StageData(pxr::SdfLayerRefPtr root, pxr::SdfLayerRefPtr session, std::string file,
            const OpenOptions& limits, const ReadContext& context);
  ~StageData();
  StageData(const StageData&) = delete;
  StageData& operator=(const StageData&) = delete;

  /// openScene().
  [[nodiscard]] static std::shared_ptr<Stage> openFile(const std::string& file,
                                                       const OpenOptions& options,
                                                       std::string* error);
  /// A stage of a layer that is in no file.
  [[nodiscard]] static std::unique_ptr<StageData> ofMemory(const pxr::SdfLayerRefPtr& root);

  [[nodiscard]] static const StageData& of(const Stage& stage) { return *stage.data_; }

  /// Null when nothing is composed there.
  [[nodiscard]] PrimNode* find(const Path& path) const;

  /// Why the scene is not to be opened at all; empty when there is no reason.
  [[nodiscard]] const std::string& refusal() const noexcept { return refusal_; }

  // Edits. Null or false when the prim cannot be edited.

  PrimNode* define(const Path& path, const Token& type);
  [[nodiscard]] bool isEditable(const PrimNode& node) const noexcept;
  /// The prim's spec in the edit layer, made when it is not there.
  pxr::SdfPrimSpecHandle editSpec(PrimNode& node);
  bool setActive(PrimNode& node, bool active);
  bool setTypeName(PrimNode& node, const Token& type);

  /// Layers that could not be read.
  [[nodiscard]] const MissingLayers& missingLayers() const noexcept { return missing_; }
  [[nodiscard]] pxr::SdfLayerHandleSet usedLayers() const { return cache_->GetUsedLayers(); }
  /// What names of files are resolved under.
  [[nodiscard]] const pxr::ArResolverContext& resolverContext() const {
    return cache_->GetLayerStackIdentifier().pathResolverContext;
  }

  /// A field of the whole stage: from the session, else from the root layer.
  [[nodiscard]] bool stageField(const pxr::TfToken& name, pxr::VtValue* value) const;
  void setStageField(const pxr::TfToken& name, const pxr::VtValue& value);
  void recomposeAll();

  const std::uint64_t serial;  ///< stages in the order in which they were made
  const std::string file;
  const OpenOptions limits;
  const pxr::SdfLayerRefPtr root;
  const pxr::SdfLayerRefPtr session;
  const pxr::SdfLayerRefPtr edit;
  PrimNode* rootNode = nullptr;
  mutable Problems problems;

 private:
  PrimNode* nodeAt(const pxr::SdfPath& path, PrimNode* parent);
  void compose(const pxr::SdfPath& top);
  void computeIndexes(const pxr::SdfPathVector& tops, pxr::PcpErrorVector& errors);
  void leaveOutLayersOutside(const ReadContext& context);
  void fill(PrimNode& node, const pxr::PcpPrimIndex& index);
  void inheritFlags(PrimNode& node) const;
  void refreshFlags(PrimNode& top);
  void retire(PrimNode& top);
  void report(const pxr::PcpErrorVector& errors);
  [[nodiscard]] std::size_t maxDepth() const {
    return std::min(limits.depth, std::size_t{kMaxPrimNesting});
  }

  std::unique_ptr<pxr::PcpCache> cache_;
  std::deque<PrimNode> nodes_;
  std::unordered_map<Path, PrimNode*> byPath_;
  std::string refusal_;
  MissingLayers missing_;
  std::size_t numAlive_ = 0;
  std::size_t numOpinions_ = 0;  // of all prims that are alive
  // True when a part of the scene is built from another part of the same files, so that an edit may
  // show elsewhere.
  bool hasInternalArcs_ = false;
};

/// A copy of the root layer with the edits laid over it, its file names as they hold from \p
/// folder.
[[nodiscard]] pxr::SdfLayerRefPtr mergeLayers(const StageData& stage, const std::string& folder);

}  // namespace ovo::detail
