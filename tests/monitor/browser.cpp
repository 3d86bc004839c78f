// SPDX-License-Identifier: Apache-2.0
#include "tests/monitor/browser.h"

#include <cups/http.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <thread>

using nlohmann::json;

namespace {

constexpr std::chrono::seconds LONG_ENOUGH(30);

std::array<int, 2> new_pipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("pipe2() failed");
  }
  return ends;
}

}  // namespace

Browser::Browser() {
  const auto commands = new_pipe();
  const auto replies = new_pipe();
  to_browser_ = commands[1];
  from_browser_ = replies[0];
  // The browser reads commands on descriptor 3 and writes replies on 4.
  const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);  // for its complaints about absent services
  process_ = std::make_unique<ChildProcess>(ChildProcess::Options{
      {BROWSER_PROGRAM, "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
       "--disable-background-networking", "--disable-component-update", "--disable-sync", "--hide-scrollbars",
       "--remote-debugging-pipe", "--user-data-dir=" + (folder_.path() / "browser").string()},
      {{2, nowhere}, {3, commands[0]}, {4, replies[1]}},
      {}});
  close(nowhere);
  close(commands[0]);
  close(replies[1]);
  const auto target = call("Target.createTarget", {{"url", "about:blank"}})["targetId"];
  session_ = call("Target.attachToTarget", {{"targetId", target}, {"flatten", true}})["sessionId"];
}

Browser::~Browser() {
  session_.clear();
  try {
    call("Browser.close");
    static_cast<void>(process_->wait(LONG_ENOUGH));  // all of its processes
  } catch (const std::exception&) {
    // ChildProcess ends it.
  }
  close(to_browser_);
  close(from_browser_);
}

json Browser::call(const std::string& method, const json& parameters) {
  json message = {{"id", ++calls_}, {"method", method}, {"params", parameters}};
  if (!session_.empty()) {
    message["sessionId"] = session_;
  }
  const std::string text = message.dump() + '\0';
  if (write(to_browser_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    throw std::runtime_error("the browser does not read");
  }
  for (;;) {
    std::size_t end = 0;
    while ((end = bytes_.find('\0')) == std::string::npos) {
      std::array<char, 65536> chunk{};
      const auto length = read(from_browser_, chunk.data(), chunk.size());
      if (length <= 0) {
        throw std::runtime_error("the browser has ended");
      }
      bytes_.append(chunk.data(), static_cast<std::size_t>(length));
    }
    const auto reply = json::parse(bytes_.substr(0, end));
    bytes_.erase(0, end + 1);
    if (reply.value("id", 0) == calls_) {
      if (reply.contains("error")) {
        throw std::runtime_error(method + ": " + reply["error"].dump());
      }
      return reply["result"];
    }
  }
}

void Browser::set_screen(const Screen& screen) {
  screen_ = screen;
  call("Emulation.setDeviceMetricsOverride", {{"width", screen.width},
                                              {"height", screen.height},
                                              {"deviceScaleFactor", 1},
                                              {"mobile", screen.phone}});
  call("Emulation.setEmulatedMedia",
       {{"features", {{{"name", "prefers-color-scheme"}, {"value", screen.dark ? "dark" : "light"}}}}});
}

void Browser::allow_scripts(bool allowed) {
  call("Emulation.setScriptExecutionDisabled", {{"value", !allowed}});
}

void Browser::open(const std::string& address) {
  // A navigation to the address that is shown already would not be seen to end.
  call("Page.navigate", {{"url", "about:blank"}});
  call("Page.navigate", {{"url", address}});
  if (!wait_for("location.href !== 'about:blank' && document.readyState === 'complete'")) {
    throw std::runtime_error("not loaded: " + address);
  }
}

std::string Browser::evaluate(const std::string& expression) {
  json reply;
  try {
    reply = call("Runtime.evaluate", {{"expression", "String(" + expression + ")"}, {"returnByValue", true}});
  } catch (const std::runtime_error& error) {
    if (std::string_view(error.what()).find("navigated") == std::string_view::npos) {
      throw;
    }
    return "failed: the page was replaced";  // the next evaluation is in the new one
  }
  return reply.contains("exceptionDetails") ? "failed: " + reply["exceptionDetails"].dump()
                                            : reply["result"]["value"].get<std::string>();
}

bool Browser::wait_for(const std::string& expression) {
  const auto deadline = std::chrono::steady_clock::now() + LONG_ENOUGH;
  while (std::chrono::steady_clock::now() < deadline) {
    if (evaluate(expression) == "true") {
      return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return false;
}

void Browser::take_picture(const std::string& path) {
  json parameters = {{"format", "png"}};
  if (screen_.phone) {
    parameters["captureBeyondViewport"] = true;
    parameters["clip"] = {{"x", 0},
                          {"y", 0},
                          {"width", screen_.width},
                          {"height", std::stoi(evaluate("document.documentElement.scrollHeight"))},
                          {"scale", 1}};
  }
  const auto data = call("Page.captureScreenshot", parameters)["data"].get<std::string>();
  std::string bytes(data.size(), '\0');
  int length = static_cast<int>(bytes.size());
  httpDecode64_2(bytes.data(), &length, data.c_str());
  bytes.resize(static_cast<std::size_t>(length));
  std::ofstream(path, std::ios::binary) << bytes;
}
