// dlview's PDF and SVG pages: paper sizes, scales, and text stored as text.
// dlview runs as a process; poppler's pdftotext, pdfinfo and pdffonts read
// its PDF (scripts/deps installs poppler-utils), so the test sees what a
// reader of the file sees.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "tests/support/test_files.h"

namespace {

std::string data(const char* name) {
  return std::string(DL_DXF_DATA_DIR) + "/" + name;
}

// Runs `command`, its output into a file; the exit status and the output.
std::pair<int, std::string> run(const std::string& command, const std::string& name) {
  const std::string out = DL::test::test_file(name + ".txt");
  const int raw = std::system((command + " >" + out + " 2>&1").c_str());
  std::stringstream s;
  s << std::ifstream(out).rdbuf();
  return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, s.str()};
}

// dlview with `args`; under the leak checker, system libraries' lifetime
// caches are not leaks.
const std::string kDlview =
    "LSAN_OPTIONS=suppressions=" DLVIEW_SUPPRESSIONS ":print_suppressions=0 " DLVIEW_PATH;

std::string dlview(const std::string& args, const std::string& name) {
  const auto [status, out] = run(kDlview + " " + args, name);
  EXPECT_EQ(status, 0) << out;
  return out;
}

TEST(DlviewOutput, PdfTextIsTextAndPagesTakeThePaperAndScaleAsked) {
  // Fault: labels reached a PDF as filled outlines, which no reader finds.
  const std::string pdf = DL::test::test_file("text.pdf");
  dlview(data("text_layout.dxf") + " --paper A4 landscape --out " + pdf, "a4");
  const auto [text_status, text] = run("pdftotext " + pdf + " -", "pdftotext");
  ASSERT_EQ(text_status, 0) << text;
  EXPECT_NE(text.find("The quick brown fox"), std::string::npos) << text;
  EXPECT_NE(text.find("ALIGNED"), std::string::npos) << text;
  const auto [info_status, info] = run("pdfinfo " + pdf, "pdfinfo");
  ASSERT_EQ(info_status, 0) << info;
  EXPECT_NE(info.find("842 x 595 pts"), std::string::npos) << info;  // A4, landscape

  // 1:1000 without paper: a page of the drawing's size at that scale. The
  // line types' drawing spans 100 by 60 metres ($INSUNITS 6): 100 and 60 mm,
  // 283.5 and 170.1 points, and the one unit a span of points needs beside.
  const std::string scaled = DL::test::test_file("scaled.pdf");
  dlview(data("line_types.dxf") + " --scale 1:1000 --out " + scaled, "scaled");
  const auto [scaled_status, scaled_info] = run("pdfinfo " + scaled, "pdfinfo-scaled");
  ASSERT_EQ(scaled_status, 0);
  EXPECT_NE(scaled_info.find("285 x 172 pts"), std::string::npos) << scaled_info;

  // An MTEXT run in bold italic is set in such a face (fault: every run in
  // the regular face, its family taken for the whole pattern).
  const std::string styled = DL::test::test_file("styled.pdf");
  dlview(data("mtext_inline_codes.dxf") + " --out " + styled, "styled");
  const auto [fonts_status, fonts] = run("pdffonts " + styled, "pdffonts");
  ASSERT_EQ(fonts_status, 0) << fonts;
  EXPECT_NE(fonts.find("Bold"), std::string::npos) << fonts;

  // SVG keeps its text as text too.
  const std::string svg = DL::test::test_file("text.svg");
  dlview(data("text_layout.dxf") + " --paper A3 --out " + svg, "svg");
  std::stringstream s;
  s << std::ifstream(svg).rdbuf();
  EXPECT_NE(s.str().find("<text"), std::string::npos);

  // What cannot be: one line, exit status 2, nothing written.
  const std::string refused = DL::test::test_file("refused.png");
  for (const std::string& args :
       {" --paper A5 --out " + pdf, " --paper A4 --out " + refused, " --scale 2:3 --out " + pdf,
        " --scale 1:0 --out " + pdf, " --paper A4 --size 100x100 --out " + pdf}) {
    const auto [status, out] = run(kDlview + " " + data("line_types.dxf") + args, "refused");
    EXPECT_EQ(status, 2) << args;
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 1) << out;
  }
  EXPECT_FALSE(std::ifstream(refused).good());
}

}  // namespace
