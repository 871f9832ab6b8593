// What a command prints: results to standard output, as lines or as one JSON document; everything else to standard
// error.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "KivJsonWriter.h"
#include "KivSysText.h"
#include "KivToolError.h"

// The length modifiers of the standard, whatever the C library of the target takes by itself.
#ifdef __clang__
#define KIV_TOOL_FORMAT [[gnu::format(printf, 2, 3)]]
#else
#define KIV_TOOL_FORMAT [[gnu::format(gnu_printf, 2, 3)]]
#endif

namespace kiv {

class KivToolOutput {
 public:
  explicit KivToolOutput(bool bJson, std::FILE* pResult = stdout, std::FILE* pOther = stderr);

  bool IsJson() const { return m_bJson; }
  // The document; commands print to it only if IsJson.
  KivJsonWriter& Json() { return m_zJson; }

  // A line of the result; the end of the line is added. Nothing in JSON.
  KIV_TOOL_FORMAT void Line(const char* szFormat, ...);
  // A line for the user beside the result, with the program's name in front.
  KIV_TOOL_FORMAT void Note(const char* szFormat, ...);

  // Says why nothing came of it. A document that has been begun is ended with the two fields that it then has.
  KivToolExit Fail(const std::string& strWhy);
  // False if not all of the result could be written.
  bool Finish();

 private:
  // To the result, whole lines at a time; a bar on the terminal makes room.
  void Put(std::string_view str);
  void PutPending();

  bool m_bJson;
  std::FILE* m_pResult;
  std::FILE* m_pOther;
  std::string m_strPending;  // a line of the document that has no end yet
  KivJsonWriter m_zJson;
};

}  // namespace kiv
