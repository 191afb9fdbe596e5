/// \file
/// Pictures for the page: drafts while the camera moves, and the real one, band by band.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "vela/picture/DisplayImage.h"
#include "vela/picture/Picture.h"
#include "view/Http.h"
#include "view/Session.h"
#include "view/ViewAsk.h"

namespace command::viewer {

/// The pictures of all clients; a client is one picture of a page.
///
/// A request with a higher number ends the work on those before it, at the next row of a tile.
///
/// Threads: all calls may run from any number of threads at once.
class Pictures {
 public:
  explicit Pictures(Session& session);

  /// Rows of a picture as an image: PNG, or JPEG of drafts.
  ///
  /// A picture is rendered from the top, a band a request; the answer to its last band is the whole
  /// picture: the bytes of `vela render --png` with the same options. Bands of a picture that was
  /// not begun, or of which another client's number is higher, are answered by 409.
  /// \throws Failure, Interrupted, BadAsk
  [[nodiscard]] HttpResponse image(const PictureAsk& ask);

  /// The EXR that `vela render -o` makes with the same options. Where the camera was moved the
  /// header does not say how it was made, for no options do.
  /// \throws Failure, Interrupted, BadAsk
  [[nodiscard]] HttpResponse exr(const PictureAsk& ask);

  /// Lets go of all pictures.
  void forget();

 private:
  // What is done of one client's picture.
  struct Client {
    std::string name;
    std::atomic<std::uint64_t> latest{0};
    std::mutex mutex;
    std::string key;
    Seen seen;
    vela::picture::Picture picture;
    int rows = 0;  // from the top, that are rendered
  };
  [[nodiscard]] std::shared_ptr<Client> clientOf(const PictureAsk& ask);
  [[nodiscard]] std::function<bool()> isOver(const PictureAsk& ask, const Client& client) const;
  [[nodiscard]] HttpResponse draft(const PictureAsk& ask, Client& client);
  [[nodiscard]] HttpResponse band(const PictureAsk& ask, Client& client);

  Session& session_;
  const vela::picture::DisplayOptions display_;
  std::mutex mutex_;
  std::list<std::shared_ptr<Client>> clients_;  // the last heard of first
};

}  // namespace command::viewer
