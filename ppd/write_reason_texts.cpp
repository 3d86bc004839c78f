// SPDX-License-Identifier: Apache-2.0
// Writes the PPD's texts for the state reasons from the filter's reason table: reasons.defs, which is
// included by the .drv file, and a message catalogue LOCALE.po for each language except English.
#include <array>
#include <cstdio>
#include <string>
#include <string_view>

#include "filter/printer_state_reasons.h"

namespace {

/// Wording is the text of a reason in one language: "{error} 0008 ({code} 2660)". The printer's manual
/// explains the numbers.
struct Wording {
  const char* locale;
  const char* error;
  const char* code;
  const char* or_else;  ///< follows the number of the fallback reason, which has two further causes
};

constexpr Wording ENGLISH = {"en", "Printer error", "code", ", an unknown error or no answer"};

constexpr std::array TRANSLATIONS = {
    Wording{"de", "Druckerfehler", "Code", ", unbekannter Fehler oder keine Antwort"},
    Wording{"es", "Error de la impresora", "código", ", error desconocido o sin respuesta"},
    Wording{"fr", "Erreur de l’imprimante", "code", ", erreur inconnue ou pas de réponse"},
    Wording{"ja", "プリンターエラー", "コード", "、不明なエラーまたは応答なし"},
    Wording{"zh_CN", "打印机错误", "代码", "、未知错误或无响应"},
    Wording{"zh_TW", "印表機錯誤", "代碼", "、未知錯誤或無回應"},
};

/// Returns the text of a keyword "com.brenvellis-errorNNNN_XXYY" or "com.brenvellis-errorNNNN".
std::string reason_text(std::string_view keyword, const Wording& wording) {
  constexpr std::string_view PREFIX = "com.brenvellis-error";
  const std::string_view numbers = keyword.substr(PREFIX.size());
  std::string text = wording.error;
  text.append(" ").append(numbers.substr(0, 4));
  if (numbers.size() > 4) {
    text.append(" (").append(wording.code).append(" ").append(numbers.substr(5)).append(")");
  } else if (keyword == FALLBACK_REASON) {
    text += wording.or_else;
  }
  return text;
}

/// Writes `head` to the file at `path` and calls `line` for each keyword.
template <typename Line>
bool write_file(const std::string& path, const char* head, const Line& line) {
  FILE* file = fopen(path.c_str(), "w");
  if (file == nullptr) {
    perror(path.c_str());
    return false;
  }
  fputs(head, file);
  for (const PrinterStateReason& row : PRINTER_STATE_REASONS) {
    for (const char* keyword : row.keywords()) {
      line(file, keyword);
    }
  }
  const bool failed = ferror(file) != 0;
  if (fclose(file) != 0 || failed) {
    perror(path.c_str());
    return false;
  }
  return true;
}

bool write_reasons(const std::string& folder) {
  return write_file(folder + "/reasons.defs", "", [](FILE* file, const char* keyword) {
    fprintf(file, "LocAttribute cupsIPPReason \"%s/%s\" \"\"\n", keyword,
            reason_text(keyword, ENGLISH).c_str());
  });
}

bool write_catalogue(const std::string& folder, const Wording& wording) {
  return write_file(folder + "/" + wording.locale + ".po",
                    "msgid \"\"\nmsgstr \"Content-Type: text/plain; charset=UTF-8\\n\"\n",
                    [&](FILE* file, const char* keyword) {
                      fprintf(file, "\nmsgid \"%s\"\nmsgstr \"%s\"\n", reason_text(keyword, ENGLISH).c_str(),
                              reason_text(keyword, wording).c_str());
                    });
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc != 2) {
    fprintf(stderr, "Usage: %s FOLDER\n", argv[0]);
    return 2;
  }
  bool written = write_reasons(argv[1]);
  for (const Wording& wording : TRANSLATIONS) {
    written = write_catalogue(argv[1], wording) && written;
  }
  return written ? 0 : 1;
}
