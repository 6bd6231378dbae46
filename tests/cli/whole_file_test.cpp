// SPDX-License-Identifier: Apache-2.0
#include "cli/WholeFile.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "support/DiskFaults.h"
#include "support/TempFolder.h"

namespace {

using Kemffdc::kForAll;
using Kemffdc::kForOwner;
using Kemffdc::Outcome;
using Kemffdc::WriteWholeFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class WholeFile : public testing::Test {
protected:
    TempFolder folder;
};

TEST_F(WholeFile, TakesThePlaceOfTheOneBefore) {
    const std::string path = folder.Write("report", "before");
    ASSERT_EQ(WriteWholeFile(path, std::string(300000, 'x'), kForOwner).reason, "");
    EXPECT_EQ(Content(path), std::string(300000, 'x'));
    EXPECT_EQ(Mode(path), 0600U);
    EXPECT_THAT(folder.Names(), ElementsAre("report"));
}

TEST_F(WholeFile, OthersReadItWhereTheUmaskLetsThem) {
    const mode_t before = umask(027);
    EXPECT_TRUE(WriteWholeFile(folder / "metrics", "x", kForAll).Ok());
    umask(before);
    EXPECT_EQ(Mode(folder / "metrics"), 0640U);
}

TEST_F(WholeFile, AFaultAnywhereLeavesWhatWasThere) {
    const std::string path = folder.Write("report", "before");
    for (const char* call : {"open", "write", "fsync", "close", "rename"}) {
        const DiskFaults faults(std::string(call) + ":" + (folder / ".report") + ":*:EIO");
        const Outcome outcome = WriteWholeFile(path, "after", kForOwner);
        EXPECT_EQ(outcome.code, Kemffdc::kLocalFile) << call;
        EXPECT_THAT(outcome.reason, HasSubstr(path + " cannot be written: Input/output error."));
        EXPECT_EQ(faults.Played(), 1) << call;
        EXPECT_EQ(Content(path), "before") << call;
        EXPECT_THAT(folder.Names(), ElementsAre("report")) << call;
    }
}

TEST_F(WholeFile, ShortWritesAreGoneOnWith) {
    const DiskFaults faults("write:" + (folder / ".report") + ":*:short=3");
    ASSERT_TRUE(WriteWholeFile(folder / "report", "0123456789", kForOwner).Ok());
    EXPECT_EQ(Content(folder / "report"), "0123456789");
    EXPECT_EQ(faults.Played(), 4);
}

TEST_F(WholeFile, NothingButAPlainFileIsReplaced) {
    EXPECT_THAT(WriteWholeFile("/dev/null", "x", kForOwner).reason,
                HasSubstr("there is something else of that name"));
    EXPECT_THAT(WriteWholeFile(folder.Path(), "x", kForOwner).reason,
                HasSubstr("there is something else of that name"));
    EXPECT_THAT(folder.Names(), IsEmpty());
}

TEST_F(WholeFile, AFolderThatIsNotThereIsTold) {
    EXPECT_THAT(WriteWholeFile(folder / "no/report", "x", kForOwner).reason,
                HasSubstr("no/report cannot be written: No such file or directory."));
}

}  // namespace
