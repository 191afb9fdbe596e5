/// \file
/// Opens the page in the browser of whoever calls.
#pragma once

#include <string>

namespace command::viewer {

/// Starts the browser, and keeps what it needs for that until this ends.
///
/// The address has the token in it, and what a program is called with is seen by everybody on the
/// machine. The browser gets the name of a file instead, which its owner alone may read and which
/// leads to the address.
class Browser {
 public:
  /// \param url empty: starts none. A browser that cannot be started is a warning
  explicit Browser(const std::string& url);
  ~Browser();
  Browser(const Browser&) = delete;
  Browser& operator=(const Browser&) = delete;

 private:
  // \return why it could not be started; empty when it was
  [[nodiscard]] std::string start(const std::string& url);

  std::string folder_, file_;
};

}  // namespace command::viewer
