#include "vela/picture/ViewTransform.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <exception>
#include <new>
#include <utility>

#include "vela/picture/detail/Srgb.h"

#ifdef VELA_PICTURE_WITH_OPENCOLORIO
#include <OpenColorIO/OpenColorIO.h>
#endif

namespace vela::picture {

namespace {

// What brings the largest of three channels below 1, as a factor.
float softFactor(float largest) {
  constexpr float kKnee = 0.8f;
  // NaN and infinity are left to the encoding.
  if (!(largest > kKnee) || !std::isfinite(largest)) return 1.0f;
  const float beyond = largest - kKnee;
  return (kKnee + (1.0f - kKnee) * beyond / (beyond + (1.0f - kKnee))) / largest;
}

// The formula of sRGB, from 0 to 1; NaN gives 0.
float encoded(float linear) {
  if (!(linear > 0.0f)) return 0.0f;
  return detail::srgbFromLinear(std::min(linear, 1.0f));
}

bool fail(std::string* error, const std::string& why) {
  if (error) *error = why;
  return false;
}

}  // namespace

#ifdef VELA_PICTURE_WITH_OPENCOLORIO

namespace ocio = OCIO_NAMESPACE;

struct ViewTransform::Processor {
  ocio::ConstCPUProcessorRcPtr cpu;
};

namespace {

// `name`, or the default when it is empty; nothing, with the reason, when the list lacks it.
template <class At>
std::optional<std::string> findName(const char* what, const std::string& name,
                                    const char* defaultName, int count, const At& at,
                                    std::string* error) {
  std::string known;
  for (int i = 0; i < count; ++i) {
    if (name == at(i)) return name;
    known += (i == 0 ? "" : ", ") + std::string(at(i));
  }
  if (name.empty() && count > 0) return defaultName;
  fail(error, name.empty() ? std::string("it has no ") + what
                           : std::string("it has no ") + what + " " + name + "; there is " + known);
  return std::nullopt;
}

ocio::ConstCPUProcessorRcPtr makeProcessor(const ViewTransformOptions& options,
                                           std::string* error) {
  const ocio::ConstConfigRcPtr config = ocio::Config::CreateFromFile(options.config.c_str());
  config->validate();
  const auto display = findName(
      "display", options.display, config->getDefaultDisplay(), config->getNumDisplays(),
      [&](int i) { return config->getDisplay(i); }, error);
  if (!display) return nullptr;
  const auto view = findName(
      "view", options.view, config->getDefaultView(display->c_str()),
      config->getNumViews(display->c_str()),
      [&](int i) { return config->getView(display->c_str(), i); }, error);
  if (!view) return nullptr;
  const auto transform = ocio::DisplayViewTransform::Create();
  transform->setSrc(ocio::ROLE_SCENE_LINEAR);
  transform->setDisplay(display->c_str());
  transform->setView(view->c_str());
  return config->getProcessor(transform)->getDefaultCPUProcessor();
}

}  // namespace

#else

struct ViewTransform::Processor {};

#endif

std::optional<ViewTransform> ViewTransform::make(const ViewTransformOptions& options,
                                                 std::string* error) {
  ViewTransform made;
  if (options.config.empty()) {
    if (!options.display.empty()) {
      fail(error, "there is no display " + options.display + " without a configuration");
      return std::nullopt;
    }
    if (!options.view.empty() && options.view != "soft" && options.view != "clip") {
      fail(error, "there is no view " + options.view + "; try soft or clip");
      return std::nullopt;
    }
    made.view_ = options.view == "clip" ? View::clip : View::soft;
    return made;
  }
#ifdef VELA_PICTURE_WITH_OPENCOLORIO
  try {
    made.view_ = View::configured;
    Processor processor{makeProcessor(options, error)};
    if (!processor.cpu) return std::nullopt;
    made.processor_ = std::make_shared<const Processor>(std::move(processor));
    return made;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& exception) {
    // One line of what may be several.
    std::string why = exception.what();
    std::replace(why.begin(), why.end(), '\n', ' ');
    fail(error, why);
    return std::nullopt;
  }
#else
  fail(error, "this build has no OpenColorIO");
  return std::nullopt;
#endif
}

void ViewTransform::apply(tarn::Span<float> rgb) const {
  const std::size_t colours = rgb.size() / 3;
  if (view_ == View::configured) {
#ifdef VELA_PICTURE_WITH_OPENCOLORIO
    if (colours == 0) return;
    ocio::PackedImageDesc image(rgb.data(), static_cast<long>(colours), 1, 3);
    processor_->cpu->apply(image);
#endif
    return;
  }
  for (std::size_t i = 0; i < colours; ++i) {
    float* const colour = &rgb[3 * i];
    const float largest = std::max({colour[0], colour[1], colour[2]});
    const float factor = view_ == View::soft ? softFactor(largest) : 1.0f;
    for (std::size_t k = 0; k < 3; ++k) colour[k] = encoded(colour[k] * factor);
  }
}

}  // namespace vela::picture
