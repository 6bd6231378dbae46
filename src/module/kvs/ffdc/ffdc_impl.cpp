// SPDX-License-Identifier: Apache-2.0
#include "module/kvs/ffdc/ffdc_impl.h"

#include <cstdint>

#include "common/cimom/src/cimfunc.h"
#include "common/log_line.h"
#include "module/kvs/ffdc/ffdc_common.h"

namespace Varnex {

namespace {

using Pegasus::Array;
using Pegasus::CIMInstance;
using Pegasus::CIMObjectPath;
using Pegasus::CIMParamValue;
using Pegasus::CIMValue;

constexpr char kLogSource[] = "src/module/kvs/ffdc/ffdc_impl";

enum : int {
    kSuccess = 0,
    kNotConnected = 1,
    kFailed = 1,
    kExportFailed = 2,
    kNotTaken = 4,
    kFive = 5,
    kSix = 6
};

constexpr std::int32_t kNodeConnectionCase = 3;

constexpr unsigned int kEnumerationTimeout = 300000;  // milliseconds: 5 minutes
constexpr Pegasus::Uint32 kExportTimeout = 1200000;   // milliseconds: 20 minutes

constexpr char kServiceClass[] = "ZOR_FFDCService";
constexpr char kDataClass[] = "ZOR_FFDCData";
constexpr char kExportMethod[] = "ExportData";
constexpr char kCollectionType[] = "DataCollectionType";
constexpr char kNeverExported[] = "4";

bool Contains(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

CIMParamValue TextParameter(const char* name, const std::string& text) {
    return CIMParamValue(Pegasus::String(name), CIMValue(ToCimString(text)));
}

// Type and value have to match: a uint16 of the same number is another value.
bool IsUint32(const CIMValue& value, Pegasus::Uint32 number) { return value == CIMValue(number); }

// What the BMC's answer to an export means to the caller.
int CodeFor(const CIMValue& value) {
    if (IsUint32(value, 6)) return kSix;
    if (IsUint32(value, 5)) return kFive;
    if (IsUint32(value, 3)) return kNotTaken;  // 3 becomes 4: callers have no 3.
    return kExportFailed;
}

bool FindService(CimClientHolder& holder, CIMObjectPath& service) {
    Array<CIMInstance> services;
    if (GetCIMArrayFromEnumerateInstances(kServiceClass, holder, services, kEnumerationTimeout) !=
        0) {
        return false;
    }
    if (services.size() == 0) return false;
    service = services[0].getPath();
    return true;
}

// False when the URI names no protocol that the BMC can upload with.
bool CommonParameters(bool initializationNeeded, const KEMFfdcUploadingUri& target,
                      Array<CIMParamValue>& parameters) {
    const std::string& uri = target.filestore_uri_;
    const bool isSftp = Contains(uri, "sftp");  // looked for first: both words count as SFTP
    if (!isSftp && !Contains(uri, "tftp")) return false;

    parameters.append(CIMParamValue("InitializationNeeded", CIMValue(initializationNeeded)));
    parameters.append(TextParameter("ExportURI", uri));
    parameters.append(TextParameter("Username", isSftp ? target.filestore_user_ : ""));
    parameters.append(TextParameter("Password", isSftp ? target.filestore_password_ : ""));
    return true;
}

int Export(CimClientHolder& holder, const CIMObjectPath& service, const CIMInstance& object,
           Array<CIMParamValue> parameters) {
    parameters.append(CIMParamValue(kCollectionType, CIMValue(object.getPath())));
    try {
        holder.GetClient()->setTimeout(kExportTimeout);
        Array<CIMParamValue> outParameters;
        const CIMValue value = holder.GetClient()->invokeMethod(holder.GetNamespace(), service,
                                                                Pegasus::CIMName(kExportMethod),
                                                                parameters, outParameters);
        if (IsUint32(value, 0)) return kSuccess;

        LOG_LINE(kFailure) << "ExportData rev = " << ToUtf8(value.toString()) << "\n";
        return CodeFor(value);
    } catch (const Pegasus::Exception& failure) {
        LOG_LINE(kFailure) << "invokeMethod return exeption: " << ToUtf8(failure.getMessage());
        return holder.ReConnect() == kNotConnected ? kFailed : kExportFailed;
    }
}

}  // namespace

KEMFfdcImpl::KEMFfdcImpl(const VarnexConnection::ConnectionInfo& conn,
                         const KEMFfdcUploadingUri& uri, bool initializationNeeded)
    : m_connection(conn), uploading_uri_(uri), m_initializationNeeded(initializationNeeded) {
    LOG_LINE(kTrace) << "Calling constructor of KEMFfdcImpl";
}

KEMFfdcImpl::~KEMFfdcImpl() { LOG_LINE(kTrace) << "Calling destructor of KEMFfdcImpl"; }

int KEMFfdcImpl::Connect() {
    const std::string nodeNamespace = "zor/kem" + std::to_string(m_connection.node) + "/cimv2";
    const bool reachesNode = m_connection.connection_case == kNodeConnectionCase;
    const Pegasus::CIMNamespaceName nameSpace(reachesNode ? nodeNamespace.c_str() : "root/cimv2");

    (void)m_cimConnection.release();  // replaced, not closed: the earlier connection lives on
    m_cimConnection = std::make_unique<CimClientHolder>(nameSpace, m_connection);
    if (m_cimConnection->GetClient() == nullptr) {
        m_cimConnection.reset();
        return kNotConnected;
    }
    return kSuccess;
}

int KEMFfdcImpl::GetConnectStatus() { return Connect(); }

void KEMFfdcImpl::Disconnect() { m_cimConnection.reset(); }

int KEMFfdcImpl::ResetConn(const VarnexConnection::ConnectionInfo& conn) {
    m_connection = conn;
    return Connect();
}

int KEMFfdcImpl::Apply() {
    if (!m_cimConnection) return kFailed;

    CIMObjectPath service;
    if (!FindService(*m_cimConnection, service)) {
        LOG_LINE(kTrace) << "EnumerateInstances ZOR_FFDCService Failed!";
        return kFailed;
    }
    Array<CIMInstance> objects;
    if (GetCIMArrayFromEnumerateInstances(kDataClass, *m_cimConnection, objects,
                                          kEnumerationTimeout) != 0) {
        LOG_LINE(kTrace) << "EnumerateInstances ZOR_FFDCData Failed!";
        return kFailed;
    }
    Array<CIMParamValue> parameters;
    if (!CommonParameters(m_initializationNeeded, uploading_uri_, parameters)) {
        LOG_LINE(kFailure) << "Invalid uploading_uri_.filestore_uri_ : "
                           << uploading_uri_.filestore_uri_ << "\n";
        return kNotTaken;
    }
    for (Pegasus::Uint32 i = 0; i < objects.size(); ++i) {
        m_properties = {{kCollectionType, ""}};
        GetProperties(objects[i], m_properties);
        if (m_properties[kCollectionType] == kNeverExported) continue;

        const int result = Export(*m_cimConnection, service, objects[i], parameters);
        if (result != kSuccess) return result;
    }
    return kSuccess;
}

}  // namespace Varnex
