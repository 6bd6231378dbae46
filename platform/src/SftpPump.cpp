// SPDX-License-Identifier: Apache-2.0
#include "SftpPump.h"

#include <curl/curl.h>
#include <sys/stat.h>

#include <algorithm>

#include "SftpFailure.h"

namespace {

// With their heads still below the 1.28 MB that libssh lets a server send ahead in one channel: a
// small server that cannot send more cannot hear us either.
constexpr std::size_t kReadsInFlight = 8;
constexpr std::uint32_t kPiece = 128 * 1024;

// A slow server would seem to stall while it prepares a long answer: it is asked for less.
constexpr std::uint32_t kSmallPiece = 32 * 1024;
constexpr std::uint64_t kProof = 512UL << 10;  // bytes that show how quick it is
constexpr std::uint64_t kQuick = 256UL << 10;  // bytes per second
constexpr std::uint32_t kLeastRead = 1024;
constexpr std::size_t kMostPieces = 40;           // between the first and the last
constexpr std::uint64_t kWorthALane = 4UL << 20;  // bytes

constexpr char kNotOpened[] = "Could not open remote file for reading";

}  // namespace

SftpPump::SftpPump(SftpSession& session, std::string path, SftpPatience& patience,
                   std::function<bool(const char*, std::size_t)> take)
    : m_session(session), m_path(std::move(path)), m_patience(patience), m_take(std::move(take)) {}

void SftpPump::Run() {
    m_start = std::chrono::steady_clock::now();
    (void)OpenIn(m_session.First());
    Fill(m_lanes.front());
    OpenMore();
    while (m_sizeKnown ? m_taken < m_size : !m_ended) PumpOnce();
    Close();
    m_patience.AskWatcher();
}

// Before it is opened: to open a FIFO may take for ever.
std::uint64_t SftpPump::Look() {
    const auto start = std::chrono::steady_clock::now();
    const SftpPacket answer =
        m_session.First().Ask(sftp::kStat, SftpWriter().Text(m_path).Bytes(), m_patience);
    m_roundTrip = std::chrono::steady_clock::now() - start;
    if (answer.type != sftp::kAttributes) throw SftpStatusFailure(answer, kNotOpened);
    const SftpAttributes attributes = SftpReader(answer.body).Attributes();
    if (attributes.hasMode && S_ISDIR(attributes.mode)) {
        throw SftpFailure{CURLE_SSH, "", false, true};
    }
    if (attributes.hasMode && (attributes.mode & S_IFMT) != 0 && !S_ISREG(attributes.mode)) {
        throw SftpFailure{CURLE_SSH, "\"" + m_path + "\" is no plain file"};
    }
    m_sizeKnown = attributes.hasSize;
    m_size = attributes.size;
    return m_size;
}

// False where the server cannot open it once more.
bool SftpPump::OpenIn(SftpChannel& channel) {
    constexpr std::uint32_t kForReading = 1;
    const SftpPacket answer = channel.Ask(
        sftp::kOpen, SftpWriter().Text(m_path).Number(kForReading).Number(0).Bytes(), m_patience);
    if (answer.type != sftp::kHandle) {
        if (m_lanes.empty()) throw SftpStatusFailure(answer, kNotOpened);
        return false;
    }
    const std::string handle = SftpWriter().Text(SftpReader(answer.body).Text()).Bytes();
    m_lanes.push_back({&channel, handle, {}, channel.Send(sftp::kFstat, handle)});
    m_longestRead = channel.LongestRead();
    return true;
}

std::size_t SftpPump::LanesWanted() const {
    using std::chrono::milliseconds;
    if (!m_sizeKnown || m_size < kWorthALane) return 1;
    if (m_roundTrip < milliseconds(1)) return 2;
    return m_roundTrip < milliseconds(3) ? 3 : 4;
}

// The first lane has its reads under way meanwhile.
void SftpPump::OpenMore() {
    const std::size_t wanted = LanesWanted();
    if (wanted == 1) return;
    for (SftpChannel* channel : m_session.Channels(wanted, m_patience)) {
        if (channel != &m_session.First() && !OpenIn(*channel)) return;
    }
}

void SftpPump::PumpOnce() {
    bool came = false;
    for (Lane& lane : m_lanes) {
        came = Drain(lane) || came;
        HandOver();
        Fill(lane);
    }
    if (!came) m_session.Ssh().Wait(m_patience);
}

void SftpPump::Fill(Lane& lane) {
    const std::size_t most = m_sizeKnown ? kReadsInFlight : 1;
    while (lane.asked.size() < most && m_pieces.size() < kMostPieces) {
        if (m_sizeKnown ? m_next >= m_size : m_ended || !m_pieces.empty()) return;
        const std::uint32_t piece = PieceSize();
        const std::uint64_t left = m_sizeKnown ? m_size - m_next : piece;
        const auto size = static_cast<std::uint32_t>(std::min<std::uint64_t>(left, piece));
        m_pieces.push_back({m_next, size, {}, 0});
        m_next += size;
        Ask(lane, m_pieces.back());
    }
}

std::uint32_t SftpPump::PieceSize() const {
    using Milliseconds = std::chrono::milliseconds;
    if (m_taken < kProof) return kSmallPiece;
    const auto time =
        std::chrono::duration_cast<Milliseconds>(std::chrono::steady_clock::now() - m_start);
    const auto passed = static_cast<std::uint64_t>(time.count());
    return m_taken * 1000 >= kQuick * passed ? kPiece : kSmallPiece;
}

void SftpPump::Ask(Lane& lane, Piece& piece) {
    const auto have = static_cast<std::uint32_t>(piece.data.size());
    const std::string body = lane.handle + SftpWriter()
                                               .Long(piece.offset + have)
                                               .Number(std::min(piece.size - have, m_longestRead))
                                               .Bytes();
    lane.asked[lane.channel->Send(sftp::kRead, body)] = &piece;
}

bool SftpPump::Drain(Lane& lane) {
    bool came = false;
    SftpPacket packet;
    while (lane.channel->Receive(packet)) {
        Accept(lane, packet);
        came = true;
    }
    return came;
}

void SftpPump::Accept(Lane& lane, const SftpPacket& packet) {
    if (packet.number == lane.sizeAsked) {
        lane.sizeAsked = 0;
        CheckSize(packet, &lane == &m_lanes.front());
        return;
    }
    const auto found = lane.asked.find(packet.number);
    if (found == lane.asked.end())
        throw SftpNonsense("an answer to a question that was never asked");
    Piece& piece = *found->second;
    lane.asked.erase(found);
    if (packet.type != sftp::kData) {
        Ends(packet);
        return;
    }
    const std::string_view data = SftpReader(packet.body).Text();
    const std::uint32_t wanted =
        std::min(piece.size - static_cast<std::uint32_t>(piece.data.size()), m_longestRead);
    if (data.empty() || data.size() > piece.size - piece.data.size()) {
        throw SftpNonsense("another number of bytes than it was asked for");
    }
    piece.data += data;
    // Some servers give 32 KiB whatever they are asked for.
    if (data.size() < wanted && data.size() >= kLeastRead) {
        m_longestRead = static_cast<std::uint32_t>(data.size());
    }
    if (piece.data.size() < piece.size) Ask(lane, piece);
}

void SftpPump::Ends(const SftpPacket& packet) {
    const bool atEnd =
        packet.type == sftp::kStatus && SftpReader(packet.body).Number() == sftp::kEof;
    if (!atEnd) {
        const SftpFailure found = SftpStatusFailure(packet, "Could not read the remote file");
        constexpr bool kLost = true;  // other reads are under way
        throw SftpFailure{found.number, found.text, kLost, found.folder};
    }
    if (m_sizeKnown) {
        throw SftpFailure{CURLE_PARTIAL_FILE,
                          "The server announced " + std::to_string(m_size) + " bytes and has fewer",
                          true};
    }
    m_ended = true;
}

// As far as the bytes have come without a gap.
void SftpPump::HandOver() {
    while (!m_pieces.empty()) {
        Piece& piece = m_pieces.front();
        const std::size_t come = piece.data.size() - piece.taken;
        if (come > 0 && !m_take(piece.data.data() + piece.taken, come)) {
            throw SftpFailure{CURLE_WRITE_ERROR, "", true};
        }
        piece.taken += come;
        m_taken += come;
        if (piece.taken < piece.size && !m_ended) return;
        m_pieces.pop_front();
    }
}

// Nobody waits for the answers: of 200 small files, each would cost a round trip more.
void SftpPump::Close() {
    for (Lane& lane : m_lanes) {
        while (lane.sizeAsked != 0) {
            if (!Drain(lane)) m_session.Ssh().Wait(m_patience);
        }
        lane.channel->Tell(sftp::kClose, lane.handle);
    }
}

// `exactly`: right behind the first look. A channel that opens it later may find that it has grown.
void SftpPump::CheckSize(const SftpPacket& answer, bool exactly) const {
    if (!m_sizeKnown || answer.type != sftp::kAttributes) return;
    const SftpAttributes attributes = SftpReader(answer.body).Attributes();
    if (!attributes.hasSize || attributes.size == m_size) return;
    if (!exactly && attributes.size > m_size) return;
    throw SftpFailure{CURLE_PARTIAL_FILE,
                      "The server announced " + std::to_string(m_size) + " bytes and has " +
                          std::to_string(attributes.size),
                      true};
}
