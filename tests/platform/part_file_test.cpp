// SPDX-License-Identifier: Apache-2.0
//
// Downloads onto a disk that fails.
#include "DownloadTest.h"
#include "HttpsPeer.h"
#include "support/DiskFaults.h"

namespace {

using testing::ElementsAre;

class FileClientDisk : public DownloadTest {
protected:
    // A download of five writes while `rule` holds for the files of the folder.
    std::string On(const std::string& call, const std::string& nthAndWhat) {
        const DiskFaults disk(call + ":" + folder.Path() + ":" + nthAndWhat);
        const std::string text = Text(Download(bmc.At("/file/5000000")));
        EXPECT_GT(disk.Played(), 0) << "the disk did not fail";
        return text;
    }

    const HttpsPeer bmc;
};

TEST_F(FileClientDisk, AnErrorIsToldAndLeavesNothing) {
    const struct {
        const char *call, *rule, *text;
    } rows[] = {
        {"write", "1:EIO", "generic:5 Input/output error"},
        {"write", "3:ENOSPC", "generic:28 No space left on device"},
        {"write", "5:EDQUOT", "generic:122 Disk quota exceeded"},
        {"close", "1:EIO", "generic:5 Input/output error"},
        {"close", "1:ENOSPC", "generic:28 No space left on device"},
        {"close", "1:EINTR", "generic:4 Interrupted system call"},
        {"rename", "1:EIO", "generic:5 Input/output error"},
        {"rename", "1:ENOSPC", "generic:28 No space left on device"},
        {"open", "*:EACCES", "generic:13 Permission denied"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.text, On(row.call, row.rule)) << row.call << " " << row.rule;
        ExpectNothingLeft();
    }
}

TEST_F(FileClientDisk, AnErrorLeavesAnEarlierFileAsItWas) {
    for (const char* call : {"write", "close", "rename"}) {
        folder.Write("archive", "earlier");

        EXPECT_EQ("generic:5 Input/output error", On(call, "1:EIO"));

        EXPECT_EQ("earlier", Content(target));
        EXPECT_THAT(folder.Names(), ElementsAre("archive"));
    }
}

TEST_F(FileClientDisk, InterruptedAndShortWritesGoOn) {
    for (const char* rule : {"1:EINTR", "2:EINTR", "*:short=1000", "1:short=1", "3+:short=65536"}) {
        EXPECT_EQ("", On("write", rule)) << rule;
        EXPECT_EQ(HttpsPeer::FileContent(5000000), Content(target)) << rule;
    }
}

TEST_F(FileClientDisk, IsSynchronisedWhereTheOperatorSaysSo) {
    Environment("VARNEX_TRANSFER_SYNC", "1");
    {
        const DiskFaults disk("fsync:" + folder.Path() + ":*:delay=0");
        EXPECT_EQ("", Text(Download(bmc.At("/file/5000000"))));
        EXPECT_EQ(2, disk.Played()) << "the file and its folder";
    }
    std::filesystem::remove(target);

    EXPECT_EQ("generic:5 Input/output error", On("fsync", "1:EIO"));
    ExpectNothingLeft();
}

TEST_F(FileClientDisk, IsNotSynchronisedByDefault) {
    const DiskFaults disk("fsync:" + folder.Path() + ":*:EIO");
    EXPECT_EQ("", Text(Download(bmc.At("/file/5000000"))));
    EXPECT_EQ(0, disk.Played());
}

TEST_F(FileClientDisk, BytesAreWrittenInLargePieces) {
    const DiskFaults disk("write:" + folder.Path() + ":*:delay=0");

    EXPECT_EQ("", Text(Download(bmc.At("/file/52428800"))));

    EXPECT_EQ(200, disk.Played());
}

}  // namespace
