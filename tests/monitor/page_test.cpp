// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "monitor/views/html_view.h"
#include "tests/monitor/monitor_run.h"
#include "tests/support/network_printer.h"
#include "tests/unit/sample_report.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

struct Screen {
  const char* name;
  int width;
  int height;
  const char* option;  ///< one more for the browser
};

constexpr Screen DESK = {"desk", 1280, 800, "--disable-sync"};
constexpr Screen PHONE = {"phone", 390, 844, "--disable-sync"};
constexpr Screen DARK = {"dark", 1280, 800, "--force-dark-mode"};

std::string text_of(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// Every text between two marks, in order.
std::vector<std::string> between(const std::string& text, const std::string& start, const std::string& end) {
  std::vector<std::string> parts;
  for (auto at = text.find(start); at != std::string::npos; at = text.find(start, at)) {
    at += start.size();
    const auto stop = text.find(end, at);
    parts.push_back(text.substr(at, stop - at));
  }
  return parts;
}

/// A page in a browser of its own.
class Page : public testing::Test {
 protected:
  void SetUp() override {
    setenv("TZ", "UTC", 1);
    tzset();
  }

  [[nodiscard]] std::string path() const { return (folder.path() / "page.html").string(); }
  void write(const std::string& page) const { std::ofstream(path(), std::ios::binary) << page; }

  ProgramResult browse(const Screen& screen, const std::string& wish) {
    return run_program({BROWSER_PROGRAM, "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
                        "--no-first-run", "--disable-background-networking", "--disable-component-update",
                        "--disable-sync", "--hide-scrollbars", screen.option,
                        "--user-data-dir=" + (folder.path() / "browser").string(),
                        "--window-size=" + std::to_string(screen.width) + "," + std::to_string(screen.height),
                        wish, "file://" + path()});
  }

  /// The page's elements after it was shown.
  std::string document(const Screen& screen = DESK) { return browse(screen, "--dump-dom").output; }

  /// What a script that is let in finds: `expression` as text. The page's own policy would keep it out.
  std::string measure(const Screen& screen, const std::string& page, const std::string& expression) {
    std::string open = page;
    const auto policy = open.find("<meta http-equiv=\"Content-Security-Policy\"");
    open.erase(policy, open.find('>', policy) + 1 - policy);
    write(open + "<script>const value = String(" + expression +
          "); const pre = document.createElement('pre'); pre.id = 'measured'; pre.textContent = value; "
          "document.body.append(pre);</script>");
    const auto found = between(document(screen), "<pre id=\"measured\">", "</pre>");
    return found.empty() ? "nothing" : found[0];
  }

  TemporaryFolder folder;
};

TEST_F(Page, ShowsThePrintersInTroubleFirst) {
  write(html_view(sample_report()));
  std::vector<std::string> names;
  for (const auto& heading : between(document(), "<h2 id=\"printer-", "</h2>")) {
    names.push_back(heading.substr(heading.find('>') + 1));
  }
  EXPECT_THAT(names, ElementsAre("down", "empty", "garden", "silent", "stuck", "paused", "strange", "office",
                                 "slow", "missing", "bar", "asking", "busy", "hall"));
}

TEST_F(Page, ShowsTheFigures) {
  write(html_view(sample_report()));
  EXPECT_THAT(between(document(), "<strong>", "</strong>"),
              ElementsAre("90", "0", "350", "–", "400", "1", "–", "77", "12", "88", "125", "200"));
}

TEST_F(Page, IsReadAsItIsMeant) {
  const auto seen =
      measure(DESK, html_view(sample_report()),
              "document.querySelectorAll('.card h2')[2].closest('li').innerText.replace(/\\n+/g, '\\n')");
  EXPECT_EQ(seen,
            "garden\n✕ Error\nlocalhost\nError 0008, code 2660\ncover-open-report\n350\nof 350\nprints left\n"
            "100 % left · Sheet 15x20(6x8″) · Idle\nRead just now, at 15:41 UTC");
}

TEST_F(Page, TellsAScreenReaderTheGauges) {
  const auto labels =
      measure(DESK, html_view(sample_report()),
              "[...document.querySelectorAll('svg[role=img]')].map(e => e.ariaLabel).join('; ')");
  EXPECT_EQ(labels,
            "Ribbon 22 percent left; Ribbon 0 percent left; Ribbon 100 percent left; Ribbon level not known; "
            "Ribbon 100 percent left; Ribbon 0 percent left; Ribbon level not known; Ribbon 11 percent left; "
            "Ribbon 3 percent left; Ribbon 22 percent left; Ribbon 31 percent left; Ribbon 50 percent left");
}

TEST_F(Page, FitsEveryScreenWithoutScrollingSideways) {
  for (const auto& screen : {DESK, PHONE, DARK}) {
    for (const auto& page : {html_view(sample_report()), html_view(hostile_report(std::string(1000, 'x')))}) {
      EXPECT_EQ(measure(screen, page, "document.documentElement.scrollWidth <= innerWidth"), "true")
          << screen.name;
    }
  }
}

TEST_F(Page, HasLargeFiguresOnEveryScreen) {
  for (const auto& screen : {DESK, PHONE, DARK}) {
    EXPECT_EQ(measure(screen, html_view(sample_report()),
                      "parseFloat(getComputedStyle(document.querySelector('strong')).fontSize) >= 80"),
              "true")
        << screen.name;
  }
}

TEST_F(Page, IsDarkInDarkMode) {
  const std::string background = "getComputedStyle(document.body).backgroundColor";
  EXPECT_EQ(measure(DESK, html_view(sample_report()), background), "rgb(238, 241, 244)");
  EXPECT_EQ(measure(DARK, html_view(sample_report()), background), "rgb(13, 17, 23)");
}

TEST_F(Page, RunsNoScriptOfAHostileName) {
  for (const std::string text :
       {"<script>document.title='ran'</script>", "\"><img src=x onerror=\"document.title='ran'\">",
        "' onmouseover='document.title=1' x='", "</style><script>document.title='ran'</script>",
        "</title><script>document.title='ran'</script>"}) {
    write(html_view(hostile_report(text)));
    const auto elements = document();
    EXPECT_THAT(elements, HasSubstr("<title>3 of 3 printers need attention")) << text;
    EXPECT_THAT(elements, Not(HasSubstr("<script"))) << text;
    EXPECT_THAT(elements, Not(HasSubstr("<img"))) << text;
  }
}

TEST_F(Page, WouldNotRunAScriptEvenIfOneGotIn) {
  write(html_view(sample_report()) + "<script>document.title='ran'</script>");
  EXPECT_THAT(document(), HasSubstr("<title>11 of 14 printers need attention"));
}

TEST_F(Page, ShowsWhatAPrinterIsSetTo) {
  const NetworkPrinter printer({"--remaining", "23", "--total", "400", "--code", "0x2660"});
  const NetworkPrinter other({"--remaining", "350", "--total", "400"});
  const PrivateScheduler scheduler;
  scheduler.add_queue("booth", printer.device_uri());
  scheduler.add_queue("annex", other.device_uri());
  EXPECT_EQ(run_monitor(scheduler.server(), {"--html=" + path()}).exit_status, 2);
  const auto elements = document();
  EXPECT_THAT(between(elements, "<strong>", "</strong>"), ElementsAre("23", "350"));
  EXPECT_THAT(between(elements, "<p class=\"problem\">", "</p>"), ElementsAre("Error 0008, code 2660"));
  EXPECT_THAT(elements, HasSubstr("<title>1 of 2 printers needs attention</title>"));
}

class Screenshot : public Page, public testing::WithParamInterface<Screen> {};

TEST_P(Screenshot, IsKeptForEyes) {
  const auto& screen = GetParam();
  write(html_view(sample_report()));
  const auto picture = std::string(SCREENSHOT_FOLDER) + "/page-" + screen.name + ".png";
  std::filesystem::remove(picture);
  static_cast<void>(browse(screen, "--screenshot=" + picture));
  const auto bytes = text_of(picture);
  ASSERT_GT(bytes.size(), 10000U);
  const auto number = [&](std::size_t at) {
    return static_cast<unsigned char>(bytes[at + 2]) * 256 + static_cast<unsigned char>(bytes[at + 3]);
  };
  EXPECT_EQ(number(16), screen.width);
  EXPECT_EQ(number(20), screen.height);
}

INSTANTIATE_TEST_SUITE_P(Screens, Screenshot, testing::Values(DESK, PHONE, DARK),
                         [](const auto& screen) { return std::string(screen.param.name); });

}  // namespace
