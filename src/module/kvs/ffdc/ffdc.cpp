// SPDX-License-Identifier: Apache-2.0
#include <new>

#include "common/log_line.h"
#include "module/kvs/ffdc/ffdc_common.h"
#include "module/kvs/ffdc/ffdcredfish_impl.h"
#include "varnex/KEMFfdc.h"

namespace Varnex {

namespace {

constexpr char kLogSource[] = "src/module/kvs/ffdc/ffdc";

constexpr int kNotOffered = -1;

}  // namespace

KEMFfdc::KEMFfdc(const VarnexConnection::ConnectionInfo& conn, const KEMFfdcUploadingUri& uri,
                 BMCLogOption option) {
    impl_ptr_ = nullptr;
    implIpmi_ptr_ = nullptr;
    implRedfish_ptr_ = nullptr;
    LOG_LINE(kTrace) << "Calling constructor of KEMFfdc for redfish channel";
    implRedfish_ptr_ = new (std::nothrow) KEMFfdcRedfishImpl(conn, uri, option, true);
}

KEMFfdc::~KEMFfdc() {
    LOG_LINE(kTrace) << "Calling destructor of KEMFfdc";
    delete implRedfish_ptr_;
    implRedfish_ptr_ = nullptr;
}

int KEMFfdc::Apply() {
    if (implRedfish_ptr_ != nullptr) return implRedfish_ptr_->Apply();
    return kNotOffered;
}

int KEMFfdc::Connect() {
    if (implRedfish_ptr_ != nullptr) {
        LOG_LINE(kTrace) << "Calling implRedfish_ptr_ Connect";
        return implRedfish_ptr_->Connect();
    }
    return kNotOffered;
}

int KEMFfdc::GetConnectStatus() {
    if (implRedfish_ptr_ != nullptr) return implRedfish_ptr_->GetConnectStatus();
    return kNotOffered;
}

void KEMFfdc::Disconnect() {
    if (implRedfish_ptr_ != nullptr) implRedfish_ptr_->Disconnect();
}

int KEMFfdc::ResetConn(const VarnexConnection::ConnectionInfo& conn) {
    if (implRedfish_ptr_ != nullptr) return implRedfish_ptr_->ResetConn(conn);
    return kNotOffered;
}

int KEMFfdc::DownloadFFDC(const std::string& ffdcPath, const std::string& localPath) {
    if (implRedfish_ptr_ != nullptr) return implRedfish_ptr_->DownloadFFDC(ffdcPath, localPath);
    return kNotOffered;
}

bool KEMFfdc::IsFFDCLogExist(std::string& path) {
    if (implRedfish_ptr_ != nullptr) return implRedfish_ptr_->IsFFDCLogExist(path);
    return false;
}

const std::string KEMFfdc::GetFFDCPath() {  // NOLINT(readability-const-return-type): given
    return std::string();
}

void KEMFfdc::SetLogCallBack(LogMessageCallBack*) {}

void KEMFfdc::SetTrialCount(int count) {
    if (implRedfish_ptr_ != nullptr) implRedfish_ptr_->SetTrialCount(count);
}

void KEMFfdc::SetTrialInterval(int seconds) {
    if (implRedfish_ptr_ != nullptr) implRedfish_ptr_->SetTrialInterval(seconds);
}

}  // namespace Varnex
