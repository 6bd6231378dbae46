// SPDX-License-Identifier: Apache-2.0
#include "HttpConnection.h"

#include <Pegasus/Client/CIMClientException.h>

#include <algorithm>
#include <boost/asio/error.hpp>
#include <boost/beast/core/error.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/string.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/none.hpp>
#include <chrono>
#include <optional>
#include <stdexcept>

#include "Text.h"

namespace Pegasus::Internal {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using boost::system::error_code;

constexpr std::uint32_t kMaxHeader = 64U * 1024;
// Holds a piece of body or a whole trailer.
constexpr std::size_t kMaxBuffer = std::size_t{256} * 1024;
// Some ten thousand objects. What a document may take is XmlDocument's business.
constexpr std::uint64_t kMaxBody = std::uint64_t{16} * 1024 * 1024;
// The body of a refusal is of no interest, except that the next answer begins behind it.
constexpr std::uint64_t kMaxRefusal = std::uint64_t{64} * 1024;
constexpr std::chrono::seconds kRefusalPatience{1};
constexpr int kMaxInterimAnswers = 7;

using Parser = http::response_parser<http::string_body>;

// What Beast reads from.
class Source {
public:
    explicit Source(Transport& transport) : m_transport(transport) {}

    // Beast's names
    template <class Buffers>
    std::size_t read_some(const Buffers& buffers, error_code& error) {
        const asio::mutable_buffer buffer = *asio::buffer_sequence_begin(buffers);
        return m_transport.Read(buffer.data(), buffer.size(), error);
    }
    template <class Buffers>
    std::size_t read_some(const Buffers& buffers) {
        error_code error;
        const std::size_t n = read_some(buffers, error);
        if (error) throw boost::system::system_error(error);
        return n;
    }

private:
    Transport& m_transport;
};

[[noreturn]] void ThrowMalformed(const std::string& text) {
    throw CIMClientMalformedHTTPException(FromPeer(text));
}

// The peer's bytes are no HTTP, or more than anybody needs; everything else is a lost connection.
bool IsProtocolError(const error_code& error) {
    return error.category() == http::make_error_code(http::error::bad_version).category() &&
           error != http::error::end_of_stream && error != http::error::partial_message;
}

[[noreturn]] void ThrowReadFailure(const error_code& error) {
    if (error == asio::error::timed_out) throw ConnectionTimeoutException();
    if (IsProtocolError(error)) ThrowMalformed("Malformed HTTP response: " + error.message());
    ThrowMalformed("Connection closed by CIM Server.");
}

void ThrowIf(const error_code& error) {
    if (error) ThrowReadFailure(error);
}

}  // namespace

const std::string* HttpAnswer::Find(std::string_view name) const {
    for (const auto& [each, value] : fields) {
        if (beast::iequals(each, {name.data(), name.size()})) return &value;
    }
    return nullptr;
}

struct HttpConnection::Impl {
    explicit Impl(std::unique_ptr<Transport> opened)
        : transport(std::move(opened)), source(*transport), buffer(kMaxBuffer) {}

    // Interim answers (100 Continue) are passed over.
    void ReadHeader(std::optional<Parser>& parser) {
        error_code error;
        for (int i = 0; i <= kMaxInterimAnswers; ++i) {
            parser.emplace();
            parser->header_limit(kMaxHeader);
            parser->body_limit(boost::none);  // a refusal's length does not matter: see PassBody
            http::read_header(source, buffer, *parser, error);
            ThrowIf(error);
            if (parser->get().result_int() / 100 != 1) return;
        }
        ThrowMalformed("Malformed HTTP response: too many interim answers");
    }

    // Body and trailer.
    void ReadOn(Parser& parser, error_code& error) {
        try {
            http::read(source, buffer, parser, error);
        } catch (const std::length_error&) {  // Beast, of a line of 64 KiB in the trailer
            error = http::error::header_limit;
        }
    }

    // Whether the connection can go on afterwards.
    bool ReadBody(Parser& parser) {
        parser.body_limit(kMaxBody);
        error_code error = http::error::body_limit;
        if (parser.content_length().value_or(0) <= kMaxBody) {
            ReadOn(parser, error);
        }
        ThrowIf(error);
        return !parser.need_eof() && parser.get().keep_alive();
    }

    // The same for a refusal, whose status is worth more than its body: many servers announce one
    // that never comes.
    bool PassBody(Parser& parser, Transport::Clock::time_point deadline) {
        const auto length = parser.content_length();
        if (!parser.chunked() && !length) return parser.get().keep_alive();
        if (length.value_or(0) > kMaxRefusal) return false;
        parser.body_limit(kMaxRefusal);
        transport->SetDeadline(std::min(deadline, Transport::Clock::now() + kRefusalPatience));
        error_code error;
        ReadOn(parser, error);
        return !error && parser.get().keep_alive();
    }

    std::unique_ptr<Transport> transport;
    Source source;
    beast::flat_buffer buffer;
};

HttpConnection::HttpConnection(std::unique_ptr<Transport> transport)
    : m_impl(std::make_unique<Impl>(std::move(transport))) {}

HttpConnection::~HttpConnection() = default;

bool HttpConnection::IsStale() {
    return m_impl->buffer.size() != 0 || m_impl->transport->Readable();
}

HttpAnswer HttpConnection::Exchange(std::string_view head, std::string_view body,
                                    Transport::Clock::time_point deadline) {
    m_impl->transport->SetDeadline(deadline);
    error_code error;
    m_impl->transport->Write(head, body, error);
    ThrowIf(error);

    HttpAnswer answer;
    std::optional<Parser> parser;
    m_impl->ReadHeader(parser);
    answer.status = parser->get().result_int();
    answer.keepAlive =
        answer.status == 200 ? m_impl->ReadBody(*parser) : m_impl->PassBody(*parser, deadline);
    answer.reason = std::string(parser->get().reason());
    for (const auto& field : parser->get()) {
        answer.fields.emplace_back(field.name_string(), field.value());
    }
    answer.body = std::move(parser->get().body());
    return answer;
}

}  // namespace Pegasus::Internal
