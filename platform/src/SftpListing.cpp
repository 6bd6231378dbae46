// SPDX-License-Identifier: Apache-2.0
#include "SftpListing.h"

#include "SftpFailure.h"
#include "SftpNames.h"

void ListFolder(SftpSession& session, const std::string& path, SftpPatience& patience,
                std::list<std::string>& names) {
    SftpChannel& channel = session.First();
    SftpPacket answer = channel.Ask(sftp::kOpenDir, SftpWriter().Text(path).Bytes(), patience);
    if (answer.type != sftp::kHandle) {
        throw SftpStatusFailure(answer, "Could not open directory for reading");
    }
    const std::string handle = SftpWriter().Text(SftpReader(answer.body).Text()).Bytes();
    SftpNames found;
    while ((answer = channel.Ask(sftp::kReadDir, handle, patience)).type == sftp::kName) {
        found.Add(answer.body);
    }
    const bool atEnd =
        answer.type == sftp::kStatus && SftpReader(answer.body).Number() == sftp::kEof;
    if (!atEnd) throw SftpStatusFailure(answer, "Could not list the directory");
    channel.Tell(sftp::kClose, handle);
    found.TellPassedOver(path);
    names.swap(found.All());
}
