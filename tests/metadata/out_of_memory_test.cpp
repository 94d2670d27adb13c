// What a header does when memory runs out.

#include <gtest/gtest.h>

#include <new>

#include "metadata/HeaderBytes.h"
#include "support/Failures.h"

namespace {

using faults::Call;
using faults::failures;

TEST(OutOfMemory, FailsAParseOfAnyHeader) {
  for (const unsigned int version : {1u, 2u, 3u, 4u}) {
    HeaderBytes source(version);
    source.text(8, "a model text that no small buffer holds");
    if (version == 4) source.put(244, 4, 100).resize(484);
    std::vector<unsigned char> bytes = source.bytes();
    CFrameMetaData header;
    EXPECT_GT(
        failures(Call::New, [&] { return header.Parse(bytes.data(), static_cast<unsigned>(bytes.size())); }),
        3)
        << version;
    EXPECT_TRUE(header.IsValid());
  }
}

TEST(OutOfMemory, FailsAParseOfAFile) {
  std::FILE* const file = std::tmpfile();
  const HeaderBytes bytes(3);
  std::fwrite(bytes.bytes().data(), 1, bytes.size(), file);
  CFrameMetaData header;
  EXPECT_GT(failures(Call::New, [&] { return header.Parse(file); }), 3);
  std::fclose(file);
}

TEST(OutOfMemory, LeavesAValueAsItWas) {
  CMetaValues value;
  value.SetValueStr("before");
  EXPECT_EQ(failures(Call::New,
                     [&] {
                       try {
                         value.SetValueStr("after");
                         return 0;
                       } catch (const std::bad_alloc&) {
                         EXPECT_TRUE(value.IsEqual("before", 6));
                         return -1;
                       }
                     }),
            1);
  EXPECT_TRUE(value.IsEqual("after", 5));
}

}  // namespace
