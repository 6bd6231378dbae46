// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_COMMON_REST_RESTCLIENTINTERFACE_H
#define VARNEX_COMMON_REST_RESTCLIENTINTERFACE_H

#include <curl/curl.h>

#include <boost/function.hpp>
#include <istream>
#include <list>
#include <map>
#include <memory>
#include <string>

#include "MimePart.h"
#include "Response.h"

namespace Rest {

enum RequestType { GET = 0, POST = 1, PUT = 2, PATCH = 3, DELETE = 4, HEAD = 5, OPTIONS = 6 };

// Total bytes and bytes so far, of the answer once its length is known, else of the upload.
using ProgressCallback = boost::function<void(curl_off_t total, curl_off_t now)>;

using MimeParts = std::list<std::shared_ptr<MimePart>>;

// A blocking HTTP(S) client. Settings hold for every request made after them; a request blocks the
// calling thread until it has ended. A transfer that fails is reported in the Response and never
// thrown; what a stream, a part or a progress callback throws leaves the request. One thread at a
// time.
class RestClientInterface {
public:
    virtual ~RestClientInterface() = default;

    // Basic authentication (RFC 7617). An empty user name means none.
    virtual void SetBasicAuth(const std::string& user, const std::string& password) = 0;

    // Limit for connecting and for the whole request. 0: no limit. Negative: none either, but a
    // transfer of under 30 bytes per second for 60 seconds is given up.
    virtual void SetTimeout(int seconds) = 0;

    // Takes any certificate, unless a CA file is set.
    virtual void SetSkipSslVerify(bool skip) = 0;

    // Keeps libcurl from asking for a 100-continue (RFC 9110, 10.1.1) before a large body.
    virtual void SetNoExpectHeader(bool suppress) = 0;

    // Credentials go along to whatever host a redirect names.
    virtual void FollowRedirects(bool follow, int maximum) = 0;

    // PEM file of the CAs to trust. Verification is on then, also when it was to be skipped.
    virtual void SetCAInfoFilePath(const std::string& path) = 0;

    // Goes through the proxy with CONNECT. A proxy without a scheme is an HTTP proxy. Credentials
    // are sent only when both are given; an empty proxy leaves the choice to the environment.
    virtual void SetProxy(const std::string& proxy, const std::string& user,
                          const std::string& password) = 0;

    virtual void SetHeaders(std::map<std::string, std::string> headers) = 0;
    virtual std::map<std::string, std::string> GetHeaders() = 0;
    virtual void AppendHeader(const std::string& key, const std::string& value) = 0;

    // Offers gzip to the server; bodies are decoded. Always returns 0.
    virtual int EnableGzip() = 0;

    // Any kind but DELETE, which is refused with the body "unknown request type" and no transfer:
    // only Delete() deletes.
    virtual Response Request(RequestType type, const std::string& url, const std::string& body) = 0;

    virtual Response Get(const std::string& url) = 0;
    virtual Response PostMultipart(const std::string& url, const MimeParts& parts,
                                   ProgressCallback progress) = 0;

    // Streams are sent from their start to their end.
    virtual Response PostStream(const std::string& url, std::istream& stream) = 0;
    virtual Response Post(const std::string& url, const std::string& body) = 0;
    virtual Response PutStream(const std::string& url, std::istream& stream) = 0;
    virtual Response Put(const std::string& url, const std::string& body) = 0;
    virtual Response PatchStream(const std::string& url, std::istream& stream) = 0;
    virtual Response Patch(const std::string& url, const std::string& body) = 0;

    virtual Response Delete(const std::string& url) = 0;
    virtual Response Head(const std::string& url) = 0;
    virtual Response Options(const std::string& url) = 0;
};

}  // namespace Rest

#endif
