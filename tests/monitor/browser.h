// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "tests/support/child_process.h"
#include "tests/support/temporary_folder.h"

/// A screen to look at a page on.
struct Screen {
  const char* name;
  int width;
  int height;
  bool dark = false;
  bool phone = false;
};

/// Browser is a headless Chromium with one page, driven over its debugging pipe. It needs no network.
class Browser {
 public:
  Browser();
  ~Browser();
  Browser(const Browser&) = delete;
  Browser& operator=(const Browser&) = delete;

  void set_screen(const Screen& screen);
  /// Whether pages may run scripts; expressions are evaluated in any case.
  void allow_scripts(bool allowed);
  /// Opens an address and waits until the page has been loaded.
  void open(const std::string& address);
  /// The value of a JavaScript expression in the page, as text.
  [[nodiscard]] std::string evaluate(const std::string& expression);
  /// Waits until the expression is true; false if that does not come about within half a minute.
  [[nodiscard]] bool wait_for(const std::string& expression);
  /// Writes a picture of what the screen shows, or of the whole page on a phone.
  void take_picture(const std::string& path);

 private:
  nlohmann::json call(const std::string& method, const nlohmann::json& parameters = nlohmann::json::object());

  TemporaryFolder folder_;
  int to_browser_ = -1;
  int from_browser_ = -1;
  std::unique_ptr<ChildProcess> process_;
  std::string bytes_;
  std::string session_;
  int calls_ = 0;
  Screen screen_{};
};
