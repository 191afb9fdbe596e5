#include "view/Pictures.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

#include "Interrupt.h"
#include "OutputPictures.h"
#include "PictureRecord.h"
#include "vela/picture/JpegFile.h"
#include "vela/picture/PngFile.h"

namespace command::viewer {

namespace {

using vela::picture::DisplayImage;
using vela::picture::DisplayOptions;
using vela::picture::Picture;
using vela::picture::PictureRenderer;
using vela::picture::Tile;
using Clock = std::chrono::steady_clock;

// As many pages as people have open; the picture of one may be of some hundred megabytes.
constexpr std::size_t kMostClients = 16;

HttpResponse superseded() { return refuse(409, "superseded"); }

// Depth in a range that is asked for: white at its near end, dark at its far one, and beyond both;
// black where nothing is. As displayLayer() shows it in the range of the picture.
DisplayImage depthImage(const Picture& picture, double near, double far) {
  constexpr double kFarthest = 0.2;
  const auto depth = picture.layer("depth").floats;
  DisplayImage image;
  image.width = picture.width;
  image.height = picture.height;
  image.codes.reserve(picture.pixelCount() * 3);
  for (int y = 0; y < picture.height; ++y)
    for (int x = 0; x < picture.width; ++x) {
      const auto z = static_cast<double>(depth(x, y));
      double value = 0.0;
      if (std::isfinite(z)) {
        const double share = far > near ? std::clamp((z - near) / (far - near), 0.0, 1.0) : 0.0;
        value = kFarthest + (1.0 - kFarthest) * (1.0 - share);
      }
      image.codes.insert(image.codes.end(), 3, static_cast<std::uint8_t>(std::lround(value * 255)));
    }
  return image;
}

// The least and the largest finite depth; nothing where nothing is seen.
std::optional<std::pair<float, float>> depthRange(const Picture& picture) {
  float low = std::numeric_limits<float>::max(), high = -low;
  for (const float z : picture.layers.front().floats)
    if (std::isfinite(z)) {
      low = std::min(low, z);
      high = std::max(high, z);
    }
  if (low > high) return std::nullopt;
  return std::pair(low, high);
}

HttpResponse imageOf(const Picture& picture, const PictureAsk& ask, const DisplayOptions& display) {
  std::string why;
  std::optional<DisplayImage> image;
  if (ask.layer == "depth" && ask.near && ask.far)
    image = depthImage(picture, *ask.near, *ask.far);
  else
    image = displayLayer(picture, ask.layer, display, &why);
  if (!image) throw BadAsk(why);
  std::vector<unsigned char> bytes;
  // JPEG has no alpha: what has some is PNG in drafts, too.
  const bool isJpeg = ask.isDraft && !image->hasAlpha;
  if (!(isJpeg ? writeJpeg(*image, bytes, &why) : writePng(*image, bytes, &why))) throw BadAsk(why);
  HttpResponse response;
  response.type = isJpeg ? "image/jpeg" : "image/png";
  response.body.assign(bytes.begin(), bytes.end());
  return response;
}

// What was done for this answer.
void addStatistics(HttpResponse& response, const PictureRenderer& renderer, Clock::time_point start,
                   std::uint64_t raysBefore) {
  const auto time = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start);
  response.headers.emplace_back("Vela-Microseconds", std::to_string(time.count()));
  response.headers.emplace_back("Vela-Rays", std::to_string(renderer.raysTraced() - raysBefore));
  response.headers.emplace_back("Vela-Width", std::to_string(renderer.width()));
  response.headers.emplace_back("Vela-Height", std::to_string(renderer.height()));
}

void addRange(HttpResponse& response, const PictureAsk& ask, const Picture& picture) {
  if (ask.layer != "depth") return;
  if (const auto range = depthRange(picture)) {
    response.headers.emplace_back("Vela-Near", std::to_string(range->first));
    response.headers.emplace_back("Vela-Far", std::to_string(range->second));
  }
}

// Rows of one picture into another one of the same layers.
void copyRows(const Picture& from, int y, Picture& to) {
  for (std::size_t i = 0; i < from.layers.size(); ++i) {
    const auto& source = from.layers[i];
    auto& target = to.layers[i];
    const std::size_t at =
        static_cast<std::size_t>(y) * static_cast<std::size_t>(to.width) * source.channels.size();
    std::copy(source.floats.begin(), source.floats.end(),
              target.floats.begin() + static_cast<std::ptrdiff_t>(target.floats.empty() ? 0 : at));
    std::copy(
        source.integers.begin(), source.integers.end(),
        target.integers.begin() + static_cast<std::ptrdiff_t>(target.integers.empty() ? 0 : at));
  }
}

}  // namespace

Pictures::Pictures(Session& session)
    : session_(session), display_(displayOptions(session.options().files)) {}

std::shared_ptr<Pictures::Client> Pictures::clientOf(const PictureAsk& ask) {
  const std::lock_guard<std::mutex> lock(mutex_);
  auto found = std::find_if(clients_.begin(), clients_.end(),
                            [&](const auto& client) { return client->name == ask.client; });
  if (found == clients_.end()) {
    clients_.push_front(std::make_shared<Client>());
    clients_.front()->name = ask.client;
    // The work of a page that was not heard of for so long ends with it.
    if (clients_.size() > kMostClients) {
      clients_.back()->latest = std::numeric_limits<std::uint64_t>::max();
      clients_.pop_back();
    }
  } else {
    clients_.splice(clients_.begin(), clients_, found);
  }
  Client& client = *clients_.front();
  client.latest = std::max(client.latest.load(), ask.number);
  return clients_.front();
}

HttpResponse Pictures::image(const PictureAsk& ask) {
  const std::shared_ptr<Client> client = clientOf(ask);
  return ask.isDraft ? draft(ask, *client) : band(ask, *client);
}

void Pictures::forget() {
  const std::lock_guard<std::mutex> lock(mutex_);
  clients_.clear();
}

// Asked between the rows of tiles: whether the work is for nothing.
std::function<bool()> Pictures::isOver(const PictureAsk& ask, const Client& client) const {
  return [this, &client, number = ask.number, generation = session_.generation()] {
    return client.latest > number || session_.generation() != generation || isInterrupted();
  };
}

HttpResponse Pictures::draft(const PictureAsk& ask, Client& client) {
  const auto isOver = this->isOver(ask, client);
  if (isOver()) return superseded();
  const auto start = Clock::now();
  const Seen seen = session_.see(ask.view, 0, {ask.layer});
  const auto picture = seen.renderer->renderAll(session_.options().threads, {isOver, {}});
  if (!picture) return superseded();
  HttpResponse response = imageOf(*picture, ask, display_);
  addStatistics(response, *seen.renderer, start, 0);
  addRange(response, ask, *picture);
  return response;
}

HttpResponse Pictures::band(const PictureAsk& ask, Client& client) {
  const auto isOver = this->isOver(ask, client);
  const std::lock_guard<std::mutex> lock(client.mutex);
  if (isOver()) return superseded();
  const auto start = Clock::now();
  const std::string key = ask.layer + " " + std::to_string(session_.generation()) + ask.view.key;
  if (ask.y0 == 0 || client.key != key) {
    if (ask.y0 != 0) return refuse(409, "the picture is another one by now");
    client.key.clear();
    client.seen = session_.see(ask.view, ask.view.options.samples, {ask.layer});
    client.picture = client.seen.renderer->makePicture();
    client.rows = 0;
    client.key = key;
  }
  const PictureRenderer& renderer = *client.seen.renderer;
  const Tile whole = renderer.window();
  const int y1 = ask.y1 > 0 ? std::min(ask.y1, whole.y1) : whole.y1;
  if (ask.y0 > client.rows || ask.y0 >= y1) return refuse(409, "the rows above are not there");
  const std::uint64_t before = renderer.raysTraced();
  const Tile rows{whole.x0, ask.y0, whole.x1, y1};
  const auto part = renderer.renderRegion(rows, session_.options().threads, {isOver, {}});
  if (!part) return superseded();
  copyRows(*part, ask.y0, client.picture);
  client.rows = std::max(client.rows, y1);

  DisplayOptions display = display_;
  display.wholeHeight = whole.height();
  const bool isWhole = client.rows == whole.y1;
  if (!isWhole) display.y = ask.y0;
  HttpResponse response = imageOf(isWhole ? client.picture : *part, ask, display);
  response.headers.emplace_back("Vela-Row", std::to_string(isWhole ? 0 : ask.y0));
  addStatistics(response, renderer, start, before);
  addRange(response, ask, isWhole ? client.picture : *part);
  return response;
}

HttpResponse Pictures::exr(const PictureAsk& ask) {
  RenderOptions options = ask.view.options;
  const Seen seen = session_.see(ask.view, options.samples, options.layers);
  const PictureRenderer& renderer = *seen.renderer;
  auto picture = renderer.renderAll(options.threads, interruptibleWork());
  if (!picture) throw Interrupted{};
  if (!ask.view.pose) recordPicture(options, renderer, std::nullopt, renderer.window(), *picture);
  HttpResponse response;
  response.type = "image/x-exr";
  response.body = exrBytes(options, *std::move(picture),
                           {0, 0, renderer.width(), renderer.height()}, !ask.view.pose);
  return response;
}

}  // namespace command::viewer
