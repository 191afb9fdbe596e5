#include "vela/intersect/HitDetect.h"

#include "tarn/Time.h"
#include "vela/intersect/Acceleration.h"
#include "vela/intersect/BvhAcceleration.h"

namespace vela {

struct HitDetectModel::Record {
  template <class Source>
  Record(const Source& source, double time, std::string* error = nullptr)
      : model(tarn::defaultTimeValue()) {
    // KEEP(hit-detect-default-time): placements at `time`, points at the default time. Hosts show
    // handles on the shapes that they pick here, and have both at the default time.
    model.addMeshPrims(source, time, error);
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
HitDetectModel::HitDetectModel(const std::shared_ptr<ovo::Stage>& stage, double time,
                               std::string* error)
    : record_(std::make_unique<Record>(stage, time, error)) {}
HitDetectModel::HitDetectModel(const std::vector<ovo::MeshPrim>& meshes, double time,
                               std::string* error)
    : record_(std::make_unique<Record>(meshes, time, error)) {}
HitDetectModel::HitDetectModel(const ovo::Prim& prim, double time, std::string* error)
    : record_(std::make_unique<Record>(prim, time, error)) {}
HitDetectModel::~HitDetectModel() = default;

const PrimAccelerationModel& HitDetectModel::model() const { return record_->model; }

struct HitDetector::Record {
  const HitDetectModel* model;
};

HitDetector::HitDetector(const HitDetectModel& model)
    : record_(std::make_unique<Record>(Record{&model})) {}
HitDetector::~HitDetector() = default;

bool HitDetector::intersect(const IntersectionContext& ctx, const tarn::Ray3f& ray,
                            CollisionResult& result) const {
  return record_->model->record_->acceleration->intersect(ctx, ray, result);
}

}  // namespace vela
