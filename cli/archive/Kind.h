// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_ARCHIVE_KIND_H
#define KEMFFDC_ARCHIVE_KIND_H

#include <string>

namespace Kemffdc::Archives {

// What a file is, as the end of a name says it: ".tar.gz", ".zip", ".tar.xz", ".json", ".txt" ...
// Judged by its first bytes, and where these say nothing by the type that the server gave it
// (RFC 9110, Content-Type; may be empty). ".bin" for what nobody knows. Reads no more than the
// beginning.
std::string ExtensionFor(const std::string& path, const std::string& contentType);

// `name` with that end: one that says the same stays, one that says something else goes.
std::string NamedAs(const std::string& name, const std::string& extension);

}  // namespace Kemffdc::Archives

#endif
