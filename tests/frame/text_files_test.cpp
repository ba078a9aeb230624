#include "base/log.h"
#include "base/text_files.h"
#include "os/utf.h"
#include "support/scratch.h"

#include <gtest/gtest.h>
#include <pugixml.hpp>

namespace ory {
namespace {

using test::writeBytes;
using Lines = std::vector<std::string>;

class TextFilesTest : public test::InScratchFolder {};

Lines lf_read(const std::filesystem::path& path) {
  Lines lines;
  EXPECT_TRUE(gf_readExtTextFileToStringVector(path, lines));
  return lines;
}

// "Zürich\r\n✈ 1" in each encoding (ANSI has no '✈'), written byte by byte, reads as the same UTF-8 lines; a
// mark of EF BB without BF still loses three bytes; odd bytes of UTF-16 and lone surrogates do not break the
// read.
TEST_F(TextFilesTest, everyEncodingReadsAsUtf8Lines) {
  const Lines zurich = {"Z\xC3\xBCrich", "\xE2\x9C\x88 1"};
  const struct {
    std::string bytes;
    FileEncoding encoding;
    Lines lines;
  } rows[] = {
      {std::string("\xFF\xFEZ\0\xFC\0r\0i\0c\0h\0\r\0\n\0\x08\x27 \0"
                   "1\0",
                   24),
       FileEncoding::unicode, zurich},
      {std::string("\xFE\xFF\0Z\0\xFC\0r\0i\0c\0h\0\r\0\n\x27\x08\0 \0"
                   "1",
                   24),
       FileEncoding::unicodeBigEndian, zurich},
      {"\xEF\xBB\xBFZ\xC3\xBCrich\r\n\xE2\x9C\x88 1\n", FileEncoding::utf8WithBom, zurich},
      {"Z\xC3\xBCrich\n\xE2\x9C\x88 1", FileEncoding::plain, zurich},
      {"\xEF\xBBXabc\n", FileEncoding::utf8WithBom, {"abc"}},
      // Without a mark: ANSI unless the bytes are UTF-8, a literal U+FFFD included.
      {"Z\xFCrich\r\n\x80 1", FileEncoding::plain, {"Z\xC3\xBCrich", "\xE2\x82\xAC 1"}},
      {"\xEF\xBF\xBD 1", FileEncoding::plain, {"\xEF\xBF\xBD 1"}},
      {std::string("\xFF\xFE"
                   "A\0\x00\xD8"
                   "B\0C",
                   9),
       FileEncoding::unicode,
       {"A\xEF\xBF\xBD"
        "B"}},
  };
  for (const auto& row : rows) {
    writeBytes("file.txt", row.bytes);
    EXPECT_EQ(detectEncoding("file.txt"), row.encoding) << row.bytes;
    EXPECT_EQ(lf_read("file.txt"), row.lines) << row.bytes;
  }
}

TEST_F(TextFilesTest, aMissingFileIsLoggedAndGivesFalse) {
  openLog();
  Lines lines;
  EXPECT_EQ(detectEncoding("absent.txt"), FileEncoding::noneFound);
  EXPECT_FALSE(gf_readExtTextFileToStringVector("absent.txt", lines));
  closeLog();
  EXPECT_NE(test::readFile("Log.txt").find("cannot open file absent.txt for character encoding, err: "),
            std::string::npos);
}

TEST_F(TextFilesTest, plainLinesAreNullForMissingOrEmptyFiles) {
  EXPECT_EQ(readPlainLines("absent.txt", 4), nullptr);
  writeBytes("empty.txt", "");
  EXPECT_EQ(readPlainLines("empty.txt", 4), nullptr);
  writeBytes("two.txt", "a\r\nb\n");
  const auto lines = readPlainLines("two.txt", 4);
  ASSERT_NE(lines, nullptr);
  EXPECT_EQ(*lines, (Lines{"a", "b"}));
}

TEST_F(TextFilesTest, writeTextAndSaveXmlReplaceWholeFiles) {
  EXPECT_TRUE(writeText("hello", "out.txt"));
  EXPECT_EQ(test::readFile("out.txt"), "hello\n");
  EXPECT_FALSE(writeText("x", "no/such/folder/out.txt"));

  openLog();
  pugi::xml_document document;
  document.append_child("root").append_attribute("a").set_value(1);
  EXPECT_TRUE(saveXml(document, "doc.xml"));
  EXPECT_FALSE(saveXml(document, "no/such/folder/doc.xml"));
  closeLog();
  EXPECT_FALSE(std::filesystem::exists("doc.xml.saving"));
  const std::string log = test::readFile("Log.txt");
  EXPECT_NE(log.find("\"doc.xml\" saved"), std::string::npos);
  EXPECT_NE(log.find("could not save to \"no/such/folder/doc.xml\""), std::string::npos);
}

// Windows-1252, the ANSI code page outside Windows: every byte comes back as it went, the five bytes it
// leaves free included; what it lacks is '?'.
TEST(AnsiCodePage, everyByteRoundTripsAndForeignCharactersBecomeQuestionMarks) {
  for (int byte = 0; byte < 256; ++byte) {
    const std::string one(1, static_cast<char>(byte));
    EXPECT_EQ(utf8ToAnsi(ansiToUtf8(one)), one) << byte;
  }
  EXPECT_EQ(utf8ToAnsi("\xC3\xA9 \xE2\x82\xAC \xC5\xB8 \xC5\x84 \xE6\x9D\xB1 \xC3"), "\xE9 \x80 \x9F ? ? ?");
}

TEST(Slots, readAndWriteTheCommaListOfHalfHours) {
  EXPECT_EQ(slotsToText(HalfHours()), "");
  EXPECT_EQ(slotsToText(readSlots("47,3, 0,3")), "0,3,47");
  EXPECT_TRUE(readSlots("").none());
  EXPECT_THROW(readSlots("48"), std::out_of_range);
  EXPECT_THROW(readSlots("-1"), std::out_of_range);
  EXPECT_THROW(readSlots("4x"), std::invalid_argument);
}

} // namespace
} // namespace ory
