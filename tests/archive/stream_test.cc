#include "archive/stream.h"

#include <stdexcept>

#include <archive.h>
#include <gtest/gtest.h>

#include "archive/archive_test_support.h"

namespace {

using harbix::StreamMode;
using test::message_of;

TEST(StreamOptions, AcceptTarItsVariantsAndZip) {
  for (const int format : {ARCHIVE_FORMAT_TAR, ARCHIVE_FORMAT_TAR_USTAR, ARCHIVE_FORMAT_TAR_PAX_INTERCHANGE,
                           ARCHIVE_FORMAT_ZIP}) {
    EXPECT_NO_THROW(harbix::check_stream_options({StreamMode::READ, format, 0})) << format;
    EXPECT_NO_THROW(harbix::check_stream_options({StreamMode::WRITE, format, 0})) << format;
  }
}

TEST(StreamOptions, RefuseOtherFormatsWithANewlineInTheText) {
  for (const int format : {0x30003, 0x2FFFF, 0x10000, 0x50001, 0, -1}) {
    EXPECT_EQ("Format not supported\n", message_of<std::logic_error>([format] {
                harbix::check_stream_options({StreamMode::READ, format, 0});
              }))
        << format;
  }
}

TEST(StreamOptions, RefuseOtherModesBeforeAnythingElse) {
  for (const int mode : {2, -1}) {
    EXPECT_EQ("Archive can be opened only in read or write modes", message_of<std::logic_error>([mode] {
                harbix::check_stream_options({static_cast<StreamMode>(mode), 0x10000, 7});
              }))
        << mode;
  }
}

TEST(StreamOptions, RefuseCompressionAfterTheFormat) {
  EXPECT_EQ("Compression not supported", message_of<std::invalid_argument>([] {
              harbix::check_stream_options({StreamMode::WRITE, ARCHIVE_FORMAT_TAR, 1});
            }));
  EXPECT_EQ("Format not supported\n", message_of<std::logic_error>([] {
              harbix::check_stream_options({StreamMode::WRITE, 0x10000, 1});
            }));
}

TEST(StreamOptions, AreCheckedBeforeAnyFileIsTouched) {
  EXPECT_THROW(harbix::ArchiveWriter(0x10000, 0, "/nonexistent/a.tar"), std::logic_error);
  EXPECT_THROW(harbix::ArchiveReader(0x10000, 0, "/nonexistent/a.tar"), std::logic_error);
  EXPECT_THROW(harbix::ArchiveWriter(ARCHIVE_FORMAT_TAR, 1, "/nonexistent/a.tar"), std::invalid_argument);
  EXPECT_THROW(harbix::ArchiveReader(ARCHIVE_FORMAT_TAR, 1, "/nonexistent/a.tar"), std::invalid_argument);
}

}  // namespace
