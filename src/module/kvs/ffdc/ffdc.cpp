// SPDX-License-Identifier: Apache-2.0
#include <new>

#include "common/log_line.h"
#include "module/kvs/ffdc/ffdc_common.h"
#include "module/kvs/ffdc/ffdc_impl.h"
#include "module/kvs/ffdc/ffdcipmi_impl.h"
#include "module/kvs/ffdc/ffdcredfish_impl.h"
#include "varnex/KEMFfdc.h"

namespace Varnex {

namespace {

constexpr char kLogSource[] = "src/module/kvs/ffdc/ffdc";

constexpr int kNotOffered = -1;

}  // namespace

KEMFfdc::KEMFfdc(const VarnexConnection::ConnectionInfo& conn, const KEMFfdcUploadingUri& uri,
                 bool initializationNeeded)
    : impl_ptr_(nullptr), implIpmi_ptr_(nullptr), implRedfish_ptr_(nullptr) {
    LOG_LINE(kTrace) << "Calling constructor of KEMFfdc";
    impl_ptr_ = new (std::nothrow) KEMFfdcImpl(conn, uri, initializationNeeded);
}

KEMFfdc::KEMFfdc(const VarnexConnection::ConnectionInfo& conn, const std::string& outputPath,
                 int mode)
    : impl_ptr_(nullptr), implIpmi_ptr_(nullptr), implRedfish_ptr_(nullptr) {
    LOG_LINE(kTrace) << "Calling constructor of KEMFfdc for Ipmi channel";
    implIpmi_ptr_ = new (std::nothrow) KEMFfdcIpmiImpl(conn, outputPath, mode);
}

KEMFfdc::KEMFfdc(const VarnexConnection::ConnectionInfo& conn, const KEMFfdcUploadingUri& uri,
                 BMCLogOption option)
    : impl_ptr_(nullptr), implIpmi_ptr_(nullptr), implRedfish_ptr_(nullptr) {
    LOG_LINE(kTrace) << "Calling constructor of KEMFfdc for redfish channel";
    implRedfish_ptr_ = new (std::nothrow) KEMFfdcRedfishImpl(conn, uri, option, true);
}

KEMFfdc::~KEMFfdc() {
    LOG_LINE(kTrace) << "Calling destructor of KEMFfdc";
    delete impl_ptr_;
    impl_ptr_ = nullptr;
    delete implIpmi_ptr_;
    implIpmi_ptr_ = nullptr;
    delete implRedfish_ptr_;
    implRedfish_ptr_ = nullptr;
}

int KEMFfdc::Apply() {
    if (impl_ptr_ != nullptr) return impl_ptr_->Apply();
    if (implIpmi_ptr_ != nullptr) return implIpmi_ptr_->Apply();
    if (implRedfish_ptr_ != nullptr) return implRedfish_ptr_->Apply();
    return kNotOffered;
}

int KEMFfdc::Connect() {
    if (impl_ptr_ != nullptr) {
        LOG_LINE(kTrace) << "Calling impl_ptr_ Connect";
        return impl_ptr_->Connect();
    }
    if (implIpmi_ptr_ != nullptr) {
        LOG_LINE(kTrace) << "Calling implIpmi_ptr_ Connect";
        const int result = implIpmi_ptr_->Connect();
        LOG_LINE(kTrace) << "After call implIpmi_ptr_ Connect";
        return result;
    }
    if (implRedfish_ptr_ != nullptr) {
        LOG_LINE(kTrace) << "Calling implRedfish_ptr_ Connect";
        return implRedfish_ptr_->Connect();
    }
    return kNotOffered;
}

int KEMFfdc::GetConnectStatus() {
    if (impl_ptr_ != nullptr) return impl_ptr_->GetConnectStatus();
    if (implIpmi_ptr_ != nullptr) return implIpmi_ptr_->GetConnectStatus();
    if (implRedfish_ptr_ != nullptr) return implRedfish_ptr_->GetConnectStatus();
    return kNotOffered;
}

void KEMFfdc::Disconnect() {
    if (impl_ptr_ != nullptr) {
        impl_ptr_->Disconnect();
    } else if (implIpmi_ptr_ != nullptr) {
        implIpmi_ptr_->Disconnect();
    } else if (implRedfish_ptr_ != nullptr) {
        implRedfish_ptr_->Disconnect();
    }
}

int KEMFfdc::ResetConn(const VarnexConnection::ConnectionInfo& conn) {
    if (impl_ptr_ != nullptr) return impl_ptr_->ResetConn(conn);
    if (implIpmi_ptr_ != nullptr) return implIpmi_ptr_->ResetConn(conn);
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
    return implIpmi_ptr_ != nullptr ? implIpmi_ptr_->GetFFDCPath() : std::string();
}

void KEMFfdc::SetLogCallBack(LogMessageCallBack* callBack) {
    if (implIpmi_ptr_ != nullptr) implIpmi_ptr_->SetLogCallBack(callBack);
}

void KEMFfdc::SetTrialCount(int count) {
    if (implRedfish_ptr_ != nullptr) implRedfish_ptr_->SetTrialCount(count);
}

void KEMFfdc::SetTrialInterval(int seconds) {
    if (implRedfish_ptr_ != nullptr) implRedfish_ptr_->SetTrialInterval(seconds);
}

}  // namespace Varnex
