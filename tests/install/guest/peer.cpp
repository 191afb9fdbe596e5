// A host's own Embree and TBB at work.
#include <embree3/rtcore.h>
#include <tbb/blocked_range.h>
#include <tbb/parallel_reduce.h>

#include <cstring>
#include <limits>

// The distance at which a ray hits a triangle, plus a sum made by several threads; less than 0 when
// something failed.
extern "C" __attribute__((visibility("default"))) double peerLook() {
  const RTCDevice device = rtcNewDevice(nullptr);
  if (!device) return -1;
  const RTCScene scene = rtcNewScene(device);
  const RTCGeometry geometry = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_TRIANGLE);
  const float points[] = {-1, -1, 0, 1, -1, 0, 0, 1, 0};
  const unsigned indices[] = {0, 1, 2};
  const auto fill = [&](RTCBufferType type, RTCFormat format, std::size_t count, const void* from,
                        std::size_t size) {
    std::memcpy(rtcSetNewGeometryBuffer(geometry, type, 0, format, 12, count), from, size);
  };
  fill(RTC_BUFFER_TYPE_VERTEX, RTC_FORMAT_FLOAT3, 3, points, sizeof points);
  fill(RTC_BUFFER_TYPE_INDEX, RTC_FORMAT_UINT3, 1, indices, sizeof indices);
  rtcCommitGeometry(geometry);
  rtcAttachGeometry(scene, geometry);
  rtcReleaseGeometry(geometry);
  rtcCommitScene(scene);

  RTCIntersectContext context;
  rtcInitIntersectContext(&context);
  RTCRayHit ray{};
  ray.ray.org_z = 3;
  ray.ray.dir_z = -1;
  ray.ray.tfar = std::numeric_limits<float>::infinity();
  ray.ray.mask = ~0u;
  ray.hit.geomID = RTC_INVALID_GEOMETRY_ID;
  rtcIntersect1(scene, &context, &ray);
  rtcReleaseScene(scene);
  rtcReleaseDevice(device);
  if (ray.hit.geomID == RTC_INVALID_GEOMETRY_ID) return -2;

  const long sum = tbb::parallel_reduce(
      tbb::blocked_range<long>(0, 100000, 100), 0L,
      [](const tbb::blocked_range<long>& range, long start) {
        for (long i = range.begin(); i != range.end(); ++i) start += i;
        return start;
      },
      [](long a, long b) { return a + b; });
  return static_cast<double>(ray.ray.tfar) + static_cast<double>(sum);
}
