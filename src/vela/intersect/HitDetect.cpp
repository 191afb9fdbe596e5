#include "vela/intersect/HitDetect.h"

#include "tarn/Time.h"
#include "vela/intersect/Acceleration.h"
#include "vela/intersect/BvhAcceleration.h"

namespace vela {

struct HitDetectModel::Record {
  template <class Source>
  Record(const Source& source, double time) : model(tarn::defaultTimeValue()) {
    // KEEP(hit-detect-default-time): places at `time`, points at the default time. Hosts pick on
    // the shapes that they have always seen here.
    model.addMeshPrims(source, time);
    acceleration = std::make_unique<BvhAcceleration>(model, false);
  }
  PrimAccelerationModel model;
  std::unique_ptr<Acceleration> acceleration;
};

HitDetectModel::HitDetectModel(const std::shared_ptr<ovo::Stage>& stage, double time)
    : record_(std::make_unique<Record>(stage, time)) {}
HitDetectModel::HitDetectModel(const std::vector<ovo::MeshPrim>& meshes, double time)
    : record_(std::make_unique<Record>(meshes, time)) {}
HitDetectModel::HitDetectModel(const ovo::Prim& prim, double time)
    : record_(std::make_unique<Record>(prim, time)) {}
HitDetectModel::~HitDetectModel() = default;

const PrimAccelerationModel& HitDetectModel::model() const { return record_->model; }

struct HitDetector::Record {
  const HitDetectModel* model;
};

HitDetector::HitDetector(const HitDetectModel& model)
    : record_(std::make_unique<Record>(Record{&model})) {}
HitDetector::~HitDetector() = default;

bool HitDetector::intersect(const IntersectionContext& ctx, const tarn::Ray<float>& ray,
                            CollisionResult& result) const {
  return record_->model->record_->acceleration->intersect(ctx, ray, result);
}

}  // namespace vela
