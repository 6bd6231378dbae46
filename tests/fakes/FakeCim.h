// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_FAKECIM_H
#define VARNEX_TESTS_FAKECIM_H

#include <Pegasus/Client/CIMClient.h>

#include <functional>
#include <string>
#include <vector>

namespace fakes {

// The CIM client as a script; values, names and exceptions are the real ones. The journal gets one
// entry for each step:
//
//   "client"  "client destroyed"  "ssl context STORE"  "timeout MILLISECONDS"
//   "connect HOST PORT USER PASSWORD"  "connect ssl HOST PORT USER PASSWORD"
//   "enumerate NAMESPACE CLASS deep local"              and "qualifiers", "origin", "properties"
//   "invoke NAMESPACE PATH METHOD NAME=TYPE:VALUE ..."  typed parameters in their order
class FakeCim {
public:
    using Instances = Pegasus::Array<Pegasus::CIMInstance>;

    FakeCim();
    ~FakeCim();
    FakeCim(const FakeCim&) = delete;
    FakeCim& operator=(const FakeCim&) = delete;

    // Each queues what one call does, in order. Connecting without a script succeeds; the other
    // calls without one fail the test.
    void NextConnect(std::function<void()> action);
    void NextEnumeration(std::function<Instances()> action);
    void NextInvocation(std::function<Pegasus::CIMValue()> action);

    // The next SSLContext throws.
    void SslContextThrows();

    // Shorter forms.
    void RefuseConnect(const std::string& message);
    void Enumerate(const std::vector<Pegasus::CIMInstance>& instances);
    void Return(const Pegasus::CIMValue& value);
};

// ClassName.InstanceID="id" with the property DataCollectionType where `type` is not empty.
Pegasus::CIMInstance MakeInstance(const std::string& className, const std::string& id,
                                  const std::string& type = "");

}  // namespace fakes

#endif
