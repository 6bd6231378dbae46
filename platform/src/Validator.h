// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_VALIDATOR_H
#define VARNEX_PLATFORM_SRC_VALIDATOR_H

#include <curl/curl.h>

#include <string>

// Which state of a file an HTTPS server has sent, as If-Range takes it: a strong entity tag with
// its quotes, or the date of the last change (RFC 9110, sections 8.8 and 13.1.5).

// A header of the answer that `handle` is receiving or has received; empty where it is missing or
// stands there more than once.
std::string AnswerHeader(CURL* handle, const char* name);

// Of that answer; empty where it has no strong one. A date is strong when the file was last changed
// a second or more before the answer was made.
std::string ValidatorOf(CURL* handle);

// False where that answer says that no parts of the file are to be had (RFC 9110, section 14.3).
bool OffersParts(CURL* handle);

// Whether `text` is one. What a host has kept may be anything, line ends included.
bool IsValidator(const std::string& text);

// False where that answer has a validator of the same kind, and it is another one.
bool Confirms(CURL* handle, const std::string& validator);

#endif
