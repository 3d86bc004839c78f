// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <memory>
#include <thread>

#include "monitor/views/html_view.h"
#include "tests/monitor/browser.h"
#include "tests/monitor/monitor_run.h"
#include "tests/support/free_port.h"
#include "tests/support/network_printer.h"
#include "tests/unit/sample_report.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr Screen DESK = {"desk", 1280, 800};
constexpr Screen DARK = {"dark", 1280, 800, true};
constexpr Screen PHONE = {"phone", 390, 844, false, true};
constexpr Screen PORTRAIT = {"portrait", 1080, 1920};

/// Times that a test can wait for.
constexpr PageTimes FAST = {1, 1};

QueueReport healthy(const std::string& name, int remaining) {
  auto queue = refreshed(ribbon_reading(name, remaining, 400, "10x15(4x6″)"));
  queue.reading.info = "Photo booth " + name;
  queue.reading.location = "Ground floor";
  return queue;
}

/// A queue of the sample report under another name.
QueueReport sample(const std::string& name, const std::string& new_name = {}) {
  for (const auto& server : sample_report().servers) {
    for (auto queue : server.queues) {
      if (queue.reading.queue == name) {
        if (!new_name.empty()) {
          queue.reading.queue = new_name;
          queue.reading.info = "Photo booth " + new_name;
        }
        return queue;
      }
    }
  }
  throw std::runtime_error("no sample queue " + name);
}

Report report_of(std::vector<QueueReport> queues) {
  Report report;
  report.time = std::time(nullptr);
  report.servers = {{"localhost", {}, 1, std::move(queues)}};
  return report;
}

/// So many printers, the last of them in trouble.
Report wall(int count, int in_trouble) {
  std::vector<QueueReport> queues;
  const char* const troubles[] = {"garden", "empty", "bar", "stuck", "silent", "down", "paused"};
  for (int i = 0; i < count; ++i) {
    const std::string name = "booth-" + std::to_string(i + 1);
    queues.push_back(i < count - in_trouble ? healthy(name, 60 + i * 83 % 340)
                                            : sample(troubles[(count - 1 - i) % 7], name));
  }
  return report_of(queues);
}

Report names() {
  auto arabic = sample("garden", "كشك-الحديقة");
  arabic.reading.info = "كشك الصور بجانب باب الحديقة";
  arabic.reading.location = "الطابق الأرضي، مبنى ٣";
  auto lengthy =
      healthy("photobooth-in-the-foyer-by-the-grand-staircase-left-of-the-cloakroom-gypsy-jpq", 200);
  lengthy.reading.info = "Photo booth in the foyer by the grand staircase, left of the cloakroom, gypsy jpq";
  lengthy.reading.location = "Königliches Jagdschlößchen, Erdgeschoß, gegenüber der Garderobe";
  auto gypsy = sample("stuck", "gypsy-jpq");
  return report_of({arabic, lengthy, gypsy});
}

Report stopped(Report report) {
  report.time -= 41 * 60;
  return report;
}

/// A page in a browser of its own.
class Page : public testing::Test {
 protected:
  Page() {
    setenv("TZ", "UTC", 1);
    tzset();
    browser.set_screen(DESK);
  }

  [[nodiscard]] std::string path() const { return (folder.path() / "page.html").string(); }
  [[nodiscard]] std::string address() const { return "file://" + path(); }

  /// Replaces the page at once, as the monitor does.
  void write(const std::string& page) const {
    const std::string temporary = path() + ".new";
    std::ofstream(temporary, std::ios::binary) << page;
    std::filesystem::rename(temporary, path());
  }

  /// Writes a page of one queue twice a second, as a running monitor does, until the thread is stopped.
  [[nodiscard]] std::jthread keep_writing(const QueueReport& queue) const {
    return std::jthread([this, queue](const std::stop_token& stop) {
      while (!stop.stop_requested()) {
        write(html_view(report_of({queue}), FAST));
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
      }
    });
  }

  /// Opens the page as soon as it and its server are there.
  void open_page(const std::string& where) {
    for (int tries = 0; tries < 300; ++tries) {
      browser.open(where);
      if (look("document.title").find("printer") != std::string::npos) {
        return;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
  }

  void show(const Report& report, const Screen& screen = DESK) {
    browser.set_screen(screen);
    write(html_view(report));
    browser.open(address());
  }

  std::string look(const std::string& expression) { return browser.evaluate(expression); }

  TemporaryFolder folder;
  Browser browser;
};

/// The text of every element that matches, one a line.
std::string texts(const std::string& selector) {
  return "[...document.querySelectorAll('" + selector + "')].map(e => e.innerText).join('\\n')";
}

TEST_F(Page, ShowsThePrintersInTroubleFirst) {
  show(sample_report());
  EXPECT_EQ(
      look(texts("h2")),
      "cellar\ndown\nempty\ngarden\nsilent\nstuck\npaused\nstrange\noffice\nslow\nmissing\nbar\nasking\n"
      "busy\nhall");
}

TEST_F(Page, SaysWhatIsWrongAndWhatToDo) {
  auto report = report_of({sample("garden")});
  report.servers[0].queues[0].reading.location = "By the door";
  show(report);
  EXPECT_THAT(look("document.querySelector('.card').innerText.replace(/\\n+/g, '\\n')"),
              testing::MatchesRegex("garden\n✕ Error\nError 0008, code 2660\n"
                                    "Look up 0008\u00a0/\u00a02660 in the printer's manual.\n"
                                    "350 of 350 prints left \\(100\u00a0%\\)\nBy the door\n"
                                    "Sheet 15x20\\(6x8″\\) · cover-open-report · Read .*, at ..:.. UTC"));
}

TEST_F(Page, ShowsTheCauseLargestOnEveryCardInTrouble) {
  for (const auto& screen : {DESK, PHONE, PORTRAIT}) {
    for (const auto& report :
         {report_of({sample("garden")}), report_of({sample("bar"), healthy("hall", 200)}), sample_report(),
          wall(40, 20), wall(40, 40)}) {
      show(report, screen);
      EXPECT_EQ(
          look("[...document.querySelectorAll('.error, .unknown, .low')].filter(card => {"
               "  const size = e => parseFloat(getComputedStyle(e).fontSize);"
               "  const right = card.getBoundingClientRect().right;"
               "  const inSight = e => (box => box.width > 0 && box.left < right)(e.getBoundingClientRect());"
               "  const [cause, action] = ['.cause', '.action'].map(name => card.querySelector(name));"
               "  const others = [...card.querySelectorAll('article *')].filter(inSight)"
               "    .filter(e => !e.closest('.cause') && !e.closest('.action'));"
               "  return !inSight(cause) || !inSight(action) || size(action) >= size(cause) ||"
               "    others.some(e => size(e) >= size(cause)) ||"
               "    others.some(e => !e.closest('.top') && size(e) > size(action));"
               "}).map(card => card.innerText).join(' -- ')"),
          "")
          << screen.name;
    }
  }
}

TEST_F(Page, ShowsAllOfFortyPrintersAtOnce) {
  for (const int in_trouble : {0, 1, 3, 20, 40}) {
    for (const auto& screen : {DESK, DARK, PORTRAIT}) {
      show(wall(40, in_trouble), screen);
      EXPECT_EQ(
          look("[...document.querySelectorAll('h2 bdi')].filter(e => {"
               "  const name = e.getBoundingClientRect();"
               "  const box = e.closest('li').getBoundingClientRect();"
               "  return name.width > 0 && name.top >= box.top && name.bottom <= box.bottom &&"
               "    box.left >= 0 && box.top >= 0 && box.right <= innerWidth && box.bottom <= innerHeight;"
               "}).length"),
          "40")
          << screen.name << ", " << in_trouble;
      EXPECT_EQ(look("document.querySelectorAll('.card').length"), std::to_string(in_trouble));
    }
  }
}

TEST_F(Page, FillsTheScreenWithOnePrinter) {
  for (const auto& report : {report_of({healthy("hall", 200)}), report_of({sample("garden")})}) {
    for (const auto& screen : {DESK, PORTRAIT, PHONE}) {
      show(report, screen);
      EXPECT_EQ(look("(box => box.width > innerWidth * 0.9 && box.height > innerHeight * 0.8)"
                     "(document.querySelector('.card').getBoundingClientRect())"),
                "true")
          << screen.name;
    }
  }
  // Readable from four metres: a twelfth of the height and more.
  show(report_of({healthy("hall", 65535)}));
  EXPECT_EQ(look("parseFloat(getComputedStyle(document.querySelector('.figure strong')).fontSize) > 230"),
            "true");
  show(report_of({sample("garden")}));
  EXPECT_EQ(look("parseFloat(getComputedStyle(document.querySelector('.cause')).fontSize) > 100"), "true");
}

TEST_F(Page, FitsEveryScreenWithoutScrollingSideways) {
  for (const auto& screen : {DESK, PHONE, DARK, PORTRAIT}) {
    for (const auto& report :
         {sample_report(), names(), wall(40, 3), hostile_report(std::string(1000, 'x'))}) {
      show(report, screen);
      EXPECT_EQ(look("document.documentElement.scrollWidth <= innerWidth"), "true") << screen.name;
    }
  }
}

TEST_F(Page, CutsNoLineInHalf) {
  for (const auto& report : {report_of({sample("garden")}), report_of({sample("stuck")}), names(), wall(6, 3),
                             sample_report(), wall(40, 3), wall(40, 40)}) {
    show(report);
    EXPECT_EQ(look("[...document.querySelectorAll('.card p, .card h2, .card .gauge')].filter(e => {"
                   "  const box = e.getBoundingClientRect();"
                   "  const card = e.closest('.card').getBoundingClientRect();"
                   "  return box.width > 0 && box.left < card.right && box.bottom > card.bottom;"
                   "}).map(e => e.textContent).join('; ')"),
              "");
  }
}

TEST_F(Page, LeavesRoomForDescenders) {
  show(names());
  // Line height and padding hold the font's ascent and descent.
  EXPECT_EQ(look("[...document.querySelectorAll('h2, .cause, .action')].filter(e => {"
                 "  const pen = document.createElement('canvas').getContext('2d');"
                 "  const style = getComputedStyle(e);"
                 "  pen.font = style.fontWeight + ' ' + style.fontSize + ' ' + style.fontFamily;"
                 "  const ink = pen.measureText('gypsy jpq');"
                 "  const line = parseFloat(style.lineHeight);"
                 "  const half = (line - ink.fontBoundingBoxAscent - ink.fontBoundingBoxDescent) / 2;"
                 "  return half + ink.fontBoundingBoxDescent + parseFloat(style.paddingBottom) <"
                 "    ink.actualBoundingBoxDescent;"
                 "}).length"),
            "0");
}

TEST_F(Page, KeepsTextOfAnyDirectionInItsPlace) {
  show(names());
  EXPECT_EQ(look("(e => e[0].getBoundingClientRect().right <= e[1].getBoundingClientRect().left)"
                 "(document.querySelectorAll('.card .where')[0].querySelectorAll('bdi'))"),
            "true");
  EXPECT_EQ(look("document.querySelector('h2 bdi').textContent"), "كشك-الحديقة");
}

TEST_F(Page, SaysPausedOnce) {
  show(report_of({sample("paused", "booth")}));
  EXPECT_EQ(look("document.querySelector('.card').innerText.match(/paused/gi).length"), "1");
}

TEST_F(Page, HasNoGreenOnACardInTrouble) {
  for (const auto& screen : {DESK, DARK}) {
    show(sample_report(), screen);
    EXPECT_EQ(look("document.querySelectorAll('.error .gauge, .unknown .gauge').length"), "0");
    const std::string green = screen.dark ? "rgb(70, 198, 118)" : "rgb(15, 107, 55)";
    EXPECT_EQ(look("[...document.querySelectorAll('.card:not(.well) *')].filter(e => {"
                   "  const style = getComputedStyle(e);"
                   "  return [style.color, style.fill, style.borderLeftColor].includes('" +
                   green + "'); }).length"),
              "0");
    EXPECT_EQ(look("getComputedStyle(document.querySelector('.well .fill')).fill"), green);
  }
}

TEST_F(Page, HasEnoughContrast) {
  for (const auto& screen : {DESK, DARK}) {
    for (const auto& report : {sample_report(), wall(6, 3), stopped(report_of({healthy("hall", 200)}))}) {
      show(report, screen);
      // Old values are faint on purpose.
      EXPECT_EQ(
          look("[...document.querySelectorAll('body:not(.old) main *, header *, #stopped *')].filter(e => {"
               "  if (![...e.childNodes].some(n => n.nodeType === 3 && n.data.trim())) return false;"
               "  if (e.matches('noscript')) return false;"
               "  const light = color => { const c = color.match(/[\\d.]+/g).slice(0, 3).map(v => v / 255)"
               "    .map(v => v <= 0.04045 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4);"
               "    return 0.2126 * c[0] + 0.7152 * c[1] + 0.0722 * c[2]; };"
               "  let under = e;"
               "  while (getComputedStyle(under).backgroundColor === 'rgba(0, 0, 0, 0)')"
               "    under = under.parentElement;"
               "  const pair = [light(getComputedStyle(e).color),"
               "    light(getComputedStyle(under).backgroundColor)].sort((a, b) => b - a);"
               "  return (pair[0] + 0.05) / (pair[1] + 0.05) < 4.5;"
               "}).map(e => e.textContent).join('; ')"),
          "")
          << screen.name;
    }
  }
}

TEST_F(Page, NamesItsLanguageAndBeginsItsTitleWithTheState) {
  show(wall(40, 3));
  EXPECT_EQ(look("document.documentElement.lang"), "en");
  EXPECT_EQ(look("document.title"), "3 of 40 printers need attention");
  EXPECT_EQ(look("document.querySelector('h1').innerText"), "3 of 40 printers need attention");
}

TEST_F(Page, TellsAScreenReaderTheGauges) {
  show(report_of({sample("bar"), healthy("hall", 200)}));
  EXPECT_EQ(look("[...document.querySelectorAll('svg[role=img]')].map(e => e.ariaLabel).join('; ')"),
            "Ribbon 3 percent left; Ribbon 50 percent left");
}

TEST_F(Page, CountsTheAgesOn) {
  auto report = report_of({healthy("hall", 200), sample("stuck")});
  const auto show_at = [&](int age) {
    report.servers[0].queues[0].reading.age_seconds = age;
    report.servers[0].queues[1].job_seconds = age;
    show(report);
  };
  show_at(20);
  EXPECT_TRUE(browser.wait_for("/Read (\\d+) s ago/.exec(document.body.innerText)?.[1] > 21"));
  EXPECT_TRUE(browser.wait_for("/Print stuck for (\\d+) s/.exec(document.body.innerText)?.[1] > 21"));
  EXPECT_TRUE(browser.wait_for("/Updated (\\d+) s ago/.exec(document.body.innerText)?.[1] > 2"));
  show_at(117);
  EXPECT_TRUE(browser.wait_for("document.body.innerText.includes('Read 2 min ago')"));
  EXPECT_TRUE(browser.wait_for("document.body.innerText.includes('Print stuck for 2 min')"));
}

TEST_F(Page, SaysThatTheMonitorHasStoppedAndSinceWhen) {
  auto report = wall(40, 0);
  report.time -= 200;
  show(report);
  EXPECT_TRUE(browser.wait_for("document.title.startsWith('Monitor stopped, nothing new since 20')"));
  EXPECT_THAT(look("document.querySelector('#stopped').innerText"),
              testing::MatchesRegex("The monitor has stopped.\nNothing new since 20..-..-.. ..:.. UTC "
                                    "\\(3 min ago\\). Start brenvellis-monitor again."));
  EXPECT_EQ(look("(box => box.width > innerWidth * 0.9 && box.top < 50 && box.height > 90)"
                 "(document.querySelector('#stopped').getBoundingClientRect())"),
            "true");
  EXPECT_THAT(look("document.body.innerText"), Not(HasSubstr("All well")));
}

TEST_F(Page, SaysNothingOfAStopBeforeThreeMissedIntervals) {
  auto report = wall(3, 0);
  report.time -= 125;
  show(report);
  EXPECT_TRUE(browser.wait_for("/Updated 2 min ago/.test(document.body.innerText)"));
  EXPECT_EQ(look("getComputedStyle(document.querySelector('#stopped')).display"), "none");
  EXPECT_EQ(look("document.title"), "All well: 3 printers");
}

TEST_F(Page, SurvivesAMissingFile) {
  auto monitor = keep_writing(healthy("hall", 200));
  open_page(address());
  static_cast<void>(look("window.mark = 'the same page'"));
  monitor = {};
  std::filesystem::remove(path());
  EXPECT_TRUE(browser.wait_for("document.title.startsWith('Monitor stopped')"));
  EXPECT_EQ(look("document.querySelector('.figure strong').innerText"), "200");
  monitor = keep_writing(sample("garden"));
  EXPECT_TRUE(
      browser.wait_for("document.title === '1 printer needs attention' && "
                       "document.querySelector('.cause').innerText === 'Error 0008, code 2660' && "
                       "getComputedStyle(document.querySelector('#stopped')).display === 'none'"));
  EXPECT_EQ(look("window.mark"), "the same page");
}

TEST_F(Page, StartsAgainWithTheScriptOfANewerMonitor) {
  write(html_view(report_of({healthy("hall", 200)}), FAST));
  browser.open(address());
  static_cast<void>(look("window.mark = 'old'"));
  auto newer = html_view(report_of({sample("garden")}), FAST);
  newer.insert(newer.find("</script>"), " ");
  const auto policy =
      newer.find("<meta http-equiv=\"Content-Security-Policy\"");  // with the old script's hash
  newer.erase(policy, newer.find('>', policy) + 1 - policy);
  write(newer);
  EXPECT_TRUE(
      browser.wait_for("window.mark === undefined && "
                       "document.querySelector('.cause')?.innerText === 'Error 0008, code 2660'"));
}

TEST_F(Page, WithoutScriptsReloadsItself) {
  browser.allow_scripts(false);
  write(html_view(report_of({healthy("hall", 200)}), FAST));
  browser.open(address());
  EXPECT_EQ(look("document.title"), "All well: 1 printer");
  EXPECT_THAT(look("document.querySelector('header').innerText"), HasSubstr("If this time is old"));
  write(html_view(report_of({sample("garden")}), FAST));
  EXPECT_TRUE(browser.wait_for("document.title === '1 printer needs attention'"));
}

TEST_F(Page, RunsNoScriptOfAHostileName) {
  for (const std::string text :
       {"<script>document.title='ran'</script>", "\"><img src=x onerror=\"document.title='ran'\">",
        "' onmouseover='document.title=1' x='", "</style><script>document.title='ran'</script>",
        "</title><script>document.title='ran'</script>"}) {
    // Once as it is loaded, and once as the script takes it from its copy.
    auto report = hostile_report(text);
    write(html_view(report, FAST));
    browser.open(address());
    ++report.time;
    write(html_view(report, FAST));
    EXPECT_TRUE(browser.wait_for("document.querySelector('main').dataset.time === '" +
                                 std::to_string(report.time) + "'"));
    EXPECT_EQ(look("document.querySelectorAll('script').length"), "1") << text;
    EXPECT_EQ(look("document.querySelectorAll('img, [onerror], [onmouseover]').length"), "0") << text;
    EXPECT_EQ(look("document.querySelector('h2 bdi').textContent"), text);
    EXPECT_THAT(look("document.title"), StartsWith("Monitor stopped")) << text;
  }
}

TEST_F(Page, WouldNotRunAScriptEvenIfOneGotIn) {
  write(html_view(report_of({healthy("hall", 200)})) + "<script>window.ran = true</script>");
  browser.open(address());
  EXPECT_EQ(look("window.ran"), "undefined");
  EXPECT_EQ(look("document.scripts.length"), "2");
}

TEST_F(Page, IsDarkInDarkMode) {
  show(sample_report());
  EXPECT_EQ(look("getComputedStyle(document.body).backgroundColor"), "rgb(233, 237, 241)");
  show(sample_report(), DARK);
  EXPECT_EQ(look("getComputedStyle(document.body).backgroundColor"), "rgb(11, 14, 19)");
}

/// The same page on a web server that can be ended.
class ServedPage : public Page {
 protected:
  void serve() {
    server = std::make_unique<ChildProcess>(
        ChildProcess::Options{{PYTHON_PROGRAM, "-m", "http.server", std::to_string(port), "--bind",
                               "127.0.0.1", "--directory", folder.path().string()},
                              {{1, log()}, {2, log()}},
                              {}});
  }
  [[nodiscard]] int log() {
    static const int file = open("/dev/null", O_WRONLY | O_CLOEXEC);
    return file;
  }
  [[nodiscard]] std::string address() const {
    return "http://127.0.0.1:" + std::to_string(port) + "/page.html";
  }
  int port = free_port();
  std::unique_ptr<ChildProcess> server;
};

TEST_F(ServedPage, SurvivesAMissingFileAndAServerThatIsAway) {
  auto monitor = keep_writing(healthy("hall", 200));
  serve();
  open_page(address());
  static_cast<void>(look("window.mark = 'the same page'"));
  monitor = {};
  std::filesystem::remove(path());
  EXPECT_TRUE(browser.wait_for("document.title.startsWith('Monitor stopped')"));
  monitor = keep_writing(sample("garden"));
  EXPECT_TRUE(browser.wait_for("document.title === '1 printer needs attention'"));

  server.reset();
  EXPECT_TRUE(browser.wait_for("document.title.startsWith('Monitor stopped')"));
  monitor = {};
  monitor = keep_writing(healthy("hall", 200));
  serve();
  EXPECT_TRUE(browser.wait_for("document.title === 'All well: 1 printer'"));
  EXPECT_EQ(look("window.mark"), "the same page");
}

TEST_F(ServedPage, GoesByTheServersClock) {
  // The browser's clock is a day ahead of the server's.
  auto page = html_view(report_of({healthy("hall", 200)}), {1, 60});
  write(page);
  serve();
  open_page(address());
  static_cast<void>(look("Date.now = () => 86400000 + new Date().getTime()"));
  EXPECT_TRUE(browser.wait_for("/Updated (\\d+) s ago/.exec(document.body.innerText)?.[1] > 3"));
  EXPECT_EQ(look("document.title"), "All well: 1 printer");
}

TEST_F(ServedPage, FetchesNothingButItself) {
  write(html_view(sample_report(), FAST));
  serve();
  open_page(address());
  EXPECT_TRUE(browser.wait_for("performance.getEntriesByType('resource').length > 2"));
  EXPECT_EQ(look("performance.getEntriesByType('resource').filter(e => e.name !== location.href).length"),
            "0");
}

TEST_F(ServedPage, TellsASiteThatFramesItNothing) {
  write(html_view(sample_report()));
  serve();
  open_page(address());
  const auto stranger = folder.path() / "stranger.html";
  std::ofstream(stranger)
      << "<script>addEventListener('message', e => document.title = 'got [' + e.data + ']');"
      << "</script><iframe src='" << address() << "?next=1'></iframe>";
  browser.open("file://" + stranger.string());
  EXPECT_TRUE(browser.wait_for("document.title === 'got []'"));
}

TEST_F(ServedPage, IsReachedByAKioskThatStartedBeforeTheServer) {
  browser.open("file://" KIOSK_PAGE "#" + address());
  EXPECT_THAT(look("document.body.innerText"), HasSubstr("Waiting for the monitor"));
  write(html_view(report_of({healthy("hall", 200)})));
  serve();
  EXPECT_TRUE(browser.wait_for("document.title === 'All well: 1 printer'"));
  EXPECT_EQ(look("location.href"), address());
}

TEST_F(Page, IsReachedByAKioskThatStartedBeforeTheMonitor) {
  browser.open("file://" KIOSK_PAGE "#" + path());
  EXPECT_THAT(look("document.body.innerText"), HasSubstr(path()));
  browser.take_picture(PICTURE_FOLDER "/page-kiosk-waits-desk.png");
  write(html_view(report_of({healthy("hall", 200)})));
  EXPECT_TRUE(browser.wait_for("document.title === 'All well: 1 printer'"));
  EXPECT_EQ(look("location.href"), address());
}

TEST_F(Page, AKioskOpensFilesAndSitesOnly) {
  browser.open("file://" KIOSK_PAGE "#javascript:document.title='ran'");
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_EQ(look("document.title"), "Waiting for brenvellis-monitor");
  EXPECT_EQ(look("document.querySelectorAll('iframe').length"), "0");
}

TEST_F(Page, FollowsAPrinterAndSaysWhenItsMonitorEnds) {
  const NetworkPrinter printer({"--remaining", "200", "--total", "400"});
  const PrivateScheduler scheduler;
  scheduler.add_queue("booth", printer.device_uri());
  auto monitor = start_monitor(scheduler.server(), {"--watch", "1", "--idle", "1", "--html=" + path()});
  browser.open("file://" KIOSK_PAGE "#" + path());
  EXPECT_TRUE(browser.wait_for("document.title === 'All well: 1 printer'"));
  EXPECT_EQ(look("document.querySelector('.figure strong').innerText"), "200");
  static_cast<void>(look("window.mark = 'the same page'"));

  printer.tell("code 0x2660; remaining 12");
  EXPECT_TRUE(browser.wait_for("document.querySelector('.cause')?.innerText === 'Error 0008, code 2660'"));
  EXPECT_THAT(look("document.querySelector('.card').innerText"), HasSubstr("12 of 400 prints left"));

  monitor->signal(SIGTERM);
  EXPECT_TRUE(browser.wait_for("document.title.startsWith('Monitor stopped')"));
  EXPECT_EQ(look("window.mark"), "the same page");
}

struct Picture {
  const char* name;
  Report (*report)();
};

/// Everything that a person should look at after a change of the page.
const Picture PICTURES[] = {
    {"one-well", [] { return report_of({healthy("hall", 200)}); }},
    {"one-error", [] { return report_of({sample("garden")}); }},
    {"one-low", [] { return report_of({sample("bar")}); }},
    {"one-empty", [] { return report_of({sample("empty")}); }},
    {"one-paused", [] { return report_of({sample("paused")}); }},
    {"one-stuck", [] { return report_of({sample("stuck")}); }},
    {"one-silent", [] { return report_of({sample("silent")}); }},
    {"one-down", [] { return report_of({sample("down")}); }},
    {"one-late", [] { return report_of({sample("slow")}); }},
    {"one-asking", [] { return report_of({sample("asking")}); }},
    {"one-unsupported", [] { return report_of({sample("office")}); }},
    {"three-well", [] { return wall(3, 0); }},
    {"three", [] { return wall(3, 1); }},
    {"six", [] { return wall(6, 3); }},
    {"forty-well", [] { return wall(40, 0); }},
    {"forty", [] { return wall(40, 3); }},
    {"forty-half", [] { return wall(40, 20); }},
    {"forty-all", [] { return wall(40, 40); }},
    {"everything", [] { return sample_report(); }},
    {"names", names},
    {"stopped-one", [] { return stopped(report_of({healthy("hall", 200)})); }},
    {"stopped-forty", [] { return stopped(wall(40, 0)); }},
    {"no-printer", [] { return report_of({}); }},
};

class Pictures : public Page, public testing::WithParamInterface<Screen> {};

TEST_P(Pictures, AreKeptForEyes) {
  const auto& screen = GetParam();
  for (const auto& picture : PICTURES) {
    auto report = picture.report();
    if (picture.report().time == sample_report().time) {
      report.time = std::time(nullptr);
    }
    show(report, screen);
    const auto file = std::string(PICTURE_FOLDER) + "/page-" + picture.name + "-" + screen.name + ".png";
    std::filesystem::remove(file);
    browser.take_picture(file);
    EXPECT_GT(std::filesystem::file_size(file), 5000U) << file;
  }
}

INSTANTIATE_TEST_SUITE_P(Screens, Pictures, testing::Values(DESK, DARK, PHONE, PORTRAIT),
                         [](const auto& screen) { return std::string(screen.param.name); });

}  // namespace
