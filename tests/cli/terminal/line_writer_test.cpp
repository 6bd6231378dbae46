// SPDX-License-Identifier: Apache-2.0
#include "cli/terminal/LineWriter.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

using namespace std::chrono_literals;
using Kemffdc::LineWriter;

// A pipe whose read end a test reads, or does not.
class Pipe {
public:
    Pipe() {
        (void)std::signal(SIGPIPE, SIG_IGN);
        if (pipe2(m_ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    }
    ~Pipe() {
        CloseReader();
        // Not the other end: a writer may still be in it.
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int Writer() const { return m_ends[1]; }
    int Capacity() const { return fcntl(m_ends[1], F_GETPIPE_SZ); }

    int Waiting() const {
        int bytes = 0;
        ioctl(m_ends[0], FIONREAD, &bytes);
        return bytes;
    }
    bool IsFull() const { return Waiting() >= Capacity() - 4096; }

    void CloseReader() {
        if (m_ends[0] >= 0) close(m_ends[0]);
        m_ends[0] = -1;
    }

    std::string ReadSome(std::size_t most = 65536) const {
        std::string text(most, '\0');
        const ssize_t got = read(m_ends[0], text.data(), text.size());
        text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        return text;
    }

    // Until that has come.
    std::string ReadUntil(const std::string& end) const {
        std::string text;
        while (text.find(end) == std::string::npos) {
            const std::string more = ReadSome();
            if (more.empty()) break;
            text += more;
        }
        return text;
    }

private:
    int m_ends[2] = {-1, -1};
};

TEST(LineWriter, WritesEachLineAtOnceAndTheLastOneLast) {
    const Pipe pipe;
    LineWriter writer(pipe.Writer());
    writer.Write("one");
    EXPECT_EQ(pipe.ReadUntil("one\n"), "one\n");
    writer.Write("two");
    EXPECT_TRUE(writer.Finish("end", 10s));
    writer.Write("late");
    EXPECT_FALSE(writer.Finish("later", 10s));
    EXPECT_EQ(pipe.ReadUntil("end\n"), "two\nend\n");
}

TEST(LineWriter, AReaderThatStopsReadingHoldsUpNobody) {
    const Pipe pipe;
    LineWriter writer(pipe.Writer());
    const std::string line(1000, 'x');
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 10000; ++i) writer.Write(line);
    EXPECT_FALSE(writer.Finish("end", 200ms));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
}

TEST(LineWriter, AReaderThatIsGoneHoldsUpNobody) {
    Pipe pipe;
    LineWriter writer(pipe.Writer());
    pipe.CloseReader();
    writer.Write("one");
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(writer.Finish("end", 60s));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 30s);
}

TEST(LineWriter, ASlowReaderGetsTheNewestLinesAndTheLastOne) {
    const Pipe pipe;
    LineWriter writer(pipe.Writer());
    const std::string filler(1000, 'x');
    for (int i = 0; i < 5000; ++i) writer.Write(std::to_string(i) + " " + filler);
    std::string text;
    std::thread reader([&] { text = pipe.ReadUntil("end\n"); });
    EXPECT_TRUE(writer.Finish("end", 10s));
    reader.join();
    const std::string newest = "\n4999 " + filler + "\nend\n";
    ASSERT_GT(text.size(), newest.size());
    EXPECT_EQ(text.substr(text.size() - newest.size()), newest);
    // What the pipe held, and a mebibyte of lines.
    EXPECT_LT(text.size(),
              static_cast<std::size_t>(pipe.Capacity()) + (std::size_t{1} << 20) + 4096);
    EXPECT_GT(text.size(), std::size_t{1} << 20);
}

TEST(LineWriter, NothingComesBehindTheLastLine) {
    const Pipe pipe;
    LineWriter writer(pipe.Writer());
    for (int i = 0; i < 200; ++i) writer.Write(std::string(1000, 'x'));  // more than a pipe takes
    std::thread finishing([&] { EXPECT_TRUE(writer.Finish("end", 10s)); });
    while (!pipe.IsFull()) std::this_thread::sleep_for(1ms);
    std::this_thread::sleep_for(50ms);  // Finish() waits by now
    writer.Write("late");
    const std::string text = pipe.ReadUntil("end\n");
    finishing.join();
    EXPECT_EQ(text.substr(text.size() - 4), "end\n");
    EXPECT_EQ(pipe.Waiting(), 0);
}

TEST(LineWriter, WaitsForALastLineThatIsReadSlowly) {
    const Pipe pipe;
    LineWriter writer(pipe.Writer());
    const std::string last(300000, 'z');
    std::string text;
    std::thread reader([&] {
        while (text.size() < last.size() + 1) {
            std::this_thread::sleep_for(2ms);
            text += pipe.ReadSome(4096);
        }
    });
    EXPECT_TRUE(writer.Finish(last, 5s));
    reader.join();
    EXPECT_TRUE(text == last + "\n") << text.size();
}

TEST(LineWriter, HasCaughtUpWhenTheLastPieceIsTaken) {
    const Pipe pipe;
    LineWriter writer(pipe.Writer());
    EXPECT_TRUE(writer.HasCaughtUp());
    writer.Write(std::string(300000, 'x') + "end");  // more than a pipe takes
    while (!pipe.IsFull()) std::this_thread::sleep_for(1ms);
    EXPECT_FALSE(writer.HasCaughtUp());
    (void)pipe.ReadUntil("end\n");
    for (int i = 0; i < 1000 && !writer.HasCaughtUp(); ++i) std::this_thread::sleep_for(5ms);
    EXPECT_TRUE(writer.HasCaughtUp());
}

TEST(LineWriter, NeverCatchesUpWithAReaderThatIsGone) {
    Pipe pipe;
    LineWriter writer(pipe.Writer());
    pipe.CloseReader();
    writer.Write("one");
    EXPECT_FALSE(writer.Finish("end", 10s));
    EXPECT_FALSE(writer.HasCaughtUp());
}

}  // namespace
