// The hand-written line matchers against the regular expressions they stand for, on hand-picked lines and
// on many random ones built from the pieces that trip such matchers up.
#include "liveries/cfg_lines.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <random>
#include <regex>
#include <string>
#include <vector>

namespace ory {
namespace {

using Matcher = std::optional<std::string_view> (*)(std::string_view);

std::optional<std::string> lf_regexGroup(const std::regex& pattern, const std::string& text,
                                         std::size_t group) {
  std::smatch match;
  if (!std::regex_match(text, match, pattern)) return std::nullopt;
  return match[static_cast<int>(group)].str();
}

std::optional<std::string> lf_text(std::optional<std::string_view> value) {
  return value ? std::optional<std::string>(std::string(*value)) : std::nullopt;
}

std::vector<std::string> lf_randomTexts(const std::vector<std::string>& pieces, std::size_t count) {
  std::mt19937 engine(7);
  std::vector<std::string> texts;
  for (std::size_t i = 0; i < count; ++i) {
    std::string text;
    for (std::size_t n = 1 + engine() % 8; n > 0; --n)
      text += pieces[engine() % pieces.size()];
    texts.push_back(std::move(text));
  }
  return texts;
}

// Texts made of one random choice per slot, each slot a list of alternatives.
std::vector<std::string> lf_slotTexts(const std::vector<std::vector<std::string>>& slots, std::size_t count) {
  std::mt19937 engine(11);
  std::vector<std::string> texts;
  for (std::size_t i = 0; i < count; ++i) {
    std::string text;
    for (const std::vector<std::string>& slot : slots)
      text += slot[engine() % slot.size()];
    texts.push_back(std::move(text));
  }
  return texts;
}

// How many of texts the pattern matches; fails at the first text where matcher and pattern disagree.
std::size_t lf_agreements(const std::regex& pattern, std::size_t group, const std::vector<std::string>& texts,
                          const std::function<std::optional<std::string_view>(std::string_view)>& matcher) {
  std::size_t matches = 0;
  for (const std::string& text : texts) {
    const auto expected = lf_regexGroup(pattern, text, group);
    const auto actual = lf_text(matcher(text));
    EXPECT_EQ(actual, expected) << "text \"" << text << "\"";
    if (actual != expected) break;
    matches += expected ? 1 : 0;
  }
  return matches;
}

const std::vector<std::string> blanks{"", "", " ", "\t", "  ", "\r", "\v", " \n"};

constexpr auto icase = std::regex::ECMAScript | std::regex::icase;

TEST(CfgLines, keyValuesAgreeWithTheirPattern) {
  const std::vector<std::string> keys{
      "title", "sim", "model", "texture", "atc_model", "atc_id", "atc_parking_codes", "atc_parking_types"};
  std::vector<std::string> lines{"title=KLM 737",
                                 "  Title =  KLM 737  ",
                                 "TITLE=x",
                                 "title=",
                                 "title=   ",
                                 "title = a\r",
                                 "title=a\rb",
                                 "title=a\nb",
                                 "titlex=a",
                                 "ui_title=a",
                                 "title\t=\tKLM\t",
                                 "title=\v a \f",
                                 "title==",
                                 "title=a=b",
                                 "title",
                                 "title=\xC3\xA9t\xC3\xA9",
                                 "\xC2\xA0title=a",
                                 "atc_id=PH-BXA;comment",
                                 "atc_id_color=0xffffffff",
                                 "sim=B738",
                                 "simulator=x",
                                 "model=long //clean,long",
                                 "atc_parking_codes=KLM, KLMC ,KLMX",
                                 "ATC_Parking_Types=GATE,RAMP"};
  const std::vector<std::string> pieces{" ",     "\t",    "\r",       "\n",    "\v",     "=",
                                        "title", "TiTle", "sim",      "model", "atc_id", "atc_model",
                                        "x",     "A b",   "\xC3\xA9", ";",     "//",     "_"};
  for (std::string& text : lf_randomTexts(pieces, 10000))
    lines.push_back(std::move(text));
  const std::vector<std::string> values{"",     "a",  "KLM 737", " x ",      "\r",
                                        "a\rb", "\n", "=",       "\xC3\xA9", "//c"};
  for (std::string& text :
       lf_slotTexts({blanks,
                     {"title", "TITLE", "Sim", "model", "ATC_ID", "atc_model", "texture", "atc_parking_codes",
                      "atc_parking_types", "ui_title", "titl", "atc_id_x"},
                     blanks,
                     {"=", "=", "=", ":", ""},
                     blanks,
                     values,
                     values,
                     blanks},
                    20000))
    lines.push_back(std::move(text));
  std::size_t matches = 0;
  for (const std::string& key : keys) {
    SCOPED_TRACE(key);
    const std::regex pattern(fmt::format(R"(\s*({})\s*=\s*(.*\S)\s*)", key), icase);
    matches +=
        lf_agreements(pattern, 2, lines, [&](std::string_view line) { return cfgKeyValue(line, key); });
  }
  EXPECT_GT(matches, 1000u) << "the random lines must match often enough to test the values";
}

TEST(CfgLines, headersAgreeWithTheirPattern) {
  const std::regex pattern(R"(\s*(\[fltsim\.)(\d+)\]\s*)", icase);
  std::vector<std::string> lines{"[fltsim.0]",           " [FLTSIM.12] ", "[FltSim.3]\r", "[fltsim.]",
                                 "[fltsim.x]",           "[fltsim.1",     "[fltsim.1]x",  "[fltsim.1 ]",
                                 "[fltsim.99999999999]", "//[fltsim.1]",  "[fltsim,1]",   "[fltsimA1]"};
  const std::vector<std::string> pieces{" ", "\t", "\r", "[fltsim.", "[FLTSIM.", "[",
                                        "]", ".",  "0",  "17",       "x",        "fltsim"};
  for (std::string& text : lf_randomTexts(pieces, 10000))
    lines.push_back(std::move(text));
  for (std::string& text : lf_slotTexts({blanks,
                                         {"[", "[", "x["},
                                         {"fltsim", "FLTSIM", "FltSim", "fltsimx"},
                                         {".", ".", ","},
                                         {"0", "12", "", "x", "1x", "007"},
                                         {"]", "]", "", "]]"},
                                         blanks},
                                        20000))
    lines.push_back(std::move(text));
  EXPECT_GT(lf_agreements(pattern, 2, lines, fltsimHeaderDigits), 500u);
}

TEST(CfgLines, ivaoPathsAndTitlesAgreeWithTheirPatterns) {
  const std::regex folder(R"(.+\\IVAO_MTL\\IVAO_(\w+)\\aircraft.cfg$)", icase);
  std::vector<std::string> paths{R"(C:\P3D\SimObjects\IVAO_MTL\IVAO_B738\aircraft.cfg)",
                                 R"(C:\x\ivao_mtl\ivao_A320w\AIRCRAFT.CFG)",
                                 R"(\IVAO_MTL\IVAO_B738\aircraft.cfg)",
                                 R"(C:\x\IVAO_MTL\IVAO_B7-38\aircraft.cfg)",
                                 R"(C:\x\IVAO_MTL\IVAO_\aircraft.cfg)",
                                 R"(C:\x\IVAO_MTL\IVAO_B738\sim.cfg)",
                                 R"(C:\x\IVAO_MTL\IVAO_B738\aircraft_cfg)",
                                 R"(C:\x\IVAO_MTL\IVAO_B738\aircraft\cfg)",
                                 R"(C:\x\IVAO_MTL\sub\IVAO_B738\aircraft.cfg)",
                                 R"(C:\x\MY_IVAO_MTL\IVAO_B738\aircraft.cfg)"};
  const std::vector<std::string> folderPieces{"\\",   "C:",           "IVAO_MTL", "ivao_", "IVAO_",
                                              "B738", "aircraft.cfg", "aircraft", ".",     "cfg",
                                              "-",    "\r",           "x"};
  for (std::string& text : lf_randomTexts(folderPieces, 20000))
    paths.push_back(std::move(text));
  EXPECT_GE(lf_agreements(folder, 1, paths, ivaoFolderType), 4u);

  const std::regex airline(R"(\s*(\w\w\w).*$)", icase);
  std::vector<std::string> titles{"KLM Boeing 737", "  DAL",    "KL",         "K-LM",
                                  "KLM\rx",         "_1a rest", "\xC3\xA9KLM"};
  for (std::string& text : lf_randomTexts({" ", "\r", "\n", "K", "1", "_", "-", "\xC3\xA9", "LM x"}, 20000))
    titles.push_back(std::move(text));
  EXPECT_GT(lf_agreements(airline, 1, titles, ivaoTitleAirline), 500u);
}

} // namespace
} // namespace ory
