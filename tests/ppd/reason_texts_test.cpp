// SPDX-License-Identifier: Apache-2.0
// Checks the texts of the state reasons that clients show, with the PPD from the scheduler and libcups, in
// each language.
#include <cups/ppd.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <thread>

#include "tests/support/private_scheduler.h"
#include "tests/unit/known_codes.h"

namespace {

struct Language {
  const char* locale;
  const char* group_text;     ///< NNNN stands for the error's group
  const char* code_text;      ///< the same with XXYY for the code
  const char* fallback_text;  ///< of com.brenvellis-error0004
};

const Language LANGUAGES[] = {
    {"en_US", "Printer error NNNN", "Printer error NNNN (code XXYY)",
     "Printer error 0004, an unknown error or no answer"},
    {"de_DE", "Druckerfehler NNNN", "Druckerfehler NNNN (Code XXYY)",
     "Druckerfehler 0004, unbekannter Fehler oder keine Antwort"},
    {"es_ES", "Error de la impresora NNNN", "Error de la impresora NNNN (código XXYY)",
     "Error de la impresora 0004, error desconocido o sin respuesta"},
    {"fr_CA", "Erreur de l’imprimante NNNN", "Erreur de l’imprimante NNNN (code XXYY)",
     "Erreur de l’imprimante 0004, erreur inconnue ou pas de réponse"},
    {"ja_JP", "プリンターエラー NNNN", "プリンターエラー NNNN (コード XXYY)",
     "プリンターエラー 0004、不明なエラーまたは応答なし"},
    {"zh_CN", "打印机错误 NNNN", "打印机错误 NNNN (代码 XXYY)", "打印机错误 0004、未知错误或无响应"},
    {"zh_TW", "印表機錯誤 NNNN", "印表機錯誤 NNNN (代碼 XXYY)", "印表機錯誤 0004、未知錯誤或無回應"},
    // A missing language falls back to English.
    {"nl_NL", "Printer error NNNN", "Printer error NNNN (code XXYY)",
     "Printer error 0004, an unknown error or no answer"},
};

void PrintTo(const Language& language, std::ostream* stream) {
  *stream << language.locale;
}

std::string with_numbers(std::string text, const std::string& group, const std::string& code) {
  text.replace(text.find("NNNN"), 4, group);
  if (const auto place = text.find("XXYY"); place != std::string::npos) {
    text.replace(place, 4, code);
  }
  return text;
}

/// Runs in a thread of its own, because libcups has one language per thread.
void in_language(const char* locale, const std::function<void()>& run) {
  setenv("LC_ALL", (std::string(locale) + ".UTF-8").c_str(), 1);
  std::thread(run).join();
  unsetenv("LC_ALL");
}

struct ClosePpd {
  void operator()(ppd_file_t* ppd) const { ppdClose(ppd); }
};

struct CloseConnection {
  void operator()(http_t* connection) const { httpClose(connection); }
};

class ReasonTexts : public testing::TestWithParam<Language> {
 protected:
  static void SetUpTestSuite() {
    scheduler = std::make_unique<PrivateScheduler>(PrivateScheduler::Options{.port = true});
    scheduler->add_queue("booth", "socket://127.0.0.1:9");
    // Over the network: libcups asks for a PPD where the queue's URI says, and that has no socket's path.
    const std::string address = scheduler->address();
    const std::unique_ptr<http_t, CloseConnection> connection(
        httpConnect2("127.0.0.1", std::stoi(address.substr(address.rfind(':') + 1)), nullptr, AF_UNSPEC,
                     HTTP_ENCRYPTION_NEVER, 1, 30000, nullptr));
    if (const char* name = cupsGetPPD2(connection.get(), "booth")) {
      ppd_file = name;
    }
  }
  static void TearDownTestSuite() {
    std::error_code ignored;
    std::filesystem::remove(ppd_file, ignored);
    scheduler.reset();
  }

  void SetUp() override { ASSERT_FALSE(ppd_file.empty()) << "the scheduler gave no PPD"; }

  static inline std::unique_ptr<PrivateScheduler> scheduler;
  static inline std::string ppd_file;
};

std::string localized(ppd_file_t* ppd, const std::string& keyword) {
  char text[PPD_MAX_TEXT + 1] = "";
  return ppdLocalizeIPPReason(ppd, keyword.c_str(), "text", text, sizeof text) != nullptr ? text : "(none)";
}

TEST_P(ReasonTexts, EveryKeywordHasItsText) {
  in_language(GetParam().locale, [] {
    const Language& language = GetParam();
    const std::unique_ptr<ppd_file_t, ClosePpd> ppd(ppdOpenFile(ppd_file.c_str()));
    ASSERT_TRUE(ppd);
    int keywords = 0;
    for (const auto& [group, codes] : codes_of_group()) {
      for (const std::string code : codes) {
        const bool one_code = group == code;
        const std::string keyword =
            std::string("com.brenvellis-error") + group + (one_code ? "" : "_" + code);
        const std::string expected =
            code == "0004" ? language.fallback_text
                           : with_numbers(one_code ? language.group_text : language.code_text, group, code);
        EXPECT_EQ(localized(ppd.get(), keyword), expected) << keyword;
        ++keywords;
      }
    }
    EXPECT_EQ(keywords, 109);
  });
}

TEST_P(ReasonTexts, AKeywordOfNoRowHasNoText) {
  in_language(GetParam().locale, [] {
    const std::unique_ptr<ppd_file_t, ClosePpd> ppd(ppdOpenFile(ppd_file.c_str()));
    ASSERT_TRUE(ppd);
    EXPECT_EQ(localized(ppd.get(), "com.brenvellis-error0008_9999"), "(none)");
  });
}

INSTANTIATE_TEST_SUITE_P(Languages, ReasonTexts, testing::ValuesIn(LANGUAGES),
                         [](const auto& language) { return std::string(language.param.locale); });

}  // namespace
