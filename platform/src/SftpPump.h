// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_SFTPPUMP_H
#define VARNEX_PLATFORM_SRC_SFTPPUMP_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "SftpSession.h"

// Fetches one file over the channels of a session: many reads under way, the bytes handed over in
// order, memory bounded. Never asks for bytes beyond the size that the server told, because some
// servers answer that with silence.
class SftpPump {
public:
    // `take` returns false to end it.
    SftpPump(SftpSession& session, std::string path, SftpPatience& patience,
             std::function<bool(const char*, std::size_t)> take);

    // Asks what the file is, and gives its size; 0: not told. Throws SftpFailure for what is none.
    std::uint64_t Look();

    // After Look(). Throws SftpFailure.
    void Run();

private:
    // A piece of the file, asked for in one or more reads.
    struct Piece {
        std::uint64_t offset;
        std::uint32_t size;
        std::string data;
        std::size_t taken;  // of it
    };

    // A channel with the file open in it.
    struct Lane {
        SftpChannel* channel;
        std::string handle;  // with its length
        std::map<std::uint32_t, Piece*> asked;
        std::uint32_t sizeAsked;  // number of that request; 0: answered
    };

    bool OpenIn(SftpChannel& channel);
    void OpenMore();
    std::size_t LanesWanted() const;
    void PumpOnce();
    void Fill(Lane& lane);
    std::uint32_t PieceSize() const;
    void Ask(Lane& lane, Piece& piece);
    bool Drain(Lane& lane);
    void Accept(Lane& lane, const SftpPacket& packet);
    void Ends(const SftpPacket& packet);
    void HandOver();
    void Close();
    void CheckSize(const SftpPacket& answer, bool exactly) const;

    SftpSession& m_session;
    const std::string m_path;
    SftpPatience& m_patience;
    std::function<bool(const char*, std::size_t)> m_take;
    std::vector<Lane> m_lanes;
    std::deque<Piece> m_pieces;  // asked for and not yet handed over, in order
    bool m_sizeKnown = false;
    std::uint64_t m_size = 0;
    std::uint64_t m_next = 0;   // to be asked for
    std::uint64_t m_taken = 0;  // handed over
    bool m_ended = false;       // of a file of unknown size
    std::uint32_t m_longestRead = 0;
    std::chrono::steady_clock::time_point m_start;
    std::chrono::steady_clock::duration m_roundTrip{};
};

#endif
