// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "common/rest/RedfishClient.h"
#include "common/rest/RestClient.h"

namespace {

using testing::ElementsAreArray;

// Place in the table of virtual operations: in the Itanium C++ ABI for x86-64 a pointer to a
// virtual member is 1 + its offset in the table. Places 0 and 1 belong to the destructor.
template <typename Member>
int PlaceOf(Member member) {
    std::intptr_t parts[2] = {};
    static_assert(sizeof member == sizeof parts, "not the Itanium C++ ABI");
    std::memcpy(parts, &member, sizeof parts);
    EXPECT_EQ(1, parts[0] % 2) << "not virtual";
    return static_cast<int>((parts[0] - 1) / static_cast<std::intptr_t>(sizeof(void*)));
}

template <typename Client>
std::vector<int> PlacesOf() {
    return {PlaceOf(&Client::SetBasicAuth),
            PlaceOf(&Client::SetTimeout),
            PlaceOf(&Client::SetSkipSslVerify),
            PlaceOf(&Client::SetNoExpectHeader),
            PlaceOf(&Client::FollowRedirects),
            PlaceOf(&Client::SetCAInfoFilePath),
            PlaceOf(&Client::SetProxy),
            PlaceOf(&Client::SetHeaders),
            PlaceOf(&Client::GetHeaders),
            PlaceOf(&Client::AppendHeader),
            PlaceOf(&Client::EnableGzip),
            PlaceOf(&Client::Request),
            PlaceOf(&Client::Get),
            PlaceOf(&Client::PostMultipart),
            PlaceOf(&Client::PostStream),
            PlaceOf(&Client::Post),
            PlaceOf(&Client::PutStream),
            PlaceOf(&Client::Put),
            PlaceOf(&Client::PatchStream),
            PlaceOf(&Client::Patch),
            PlaceOf(&Client::Delete),
            PlaceOf(&Client::Head),
            PlaceOf(&Client::Options)};
}

const int kTwentyThreeAfterTheDestructor[] = {2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13,
                                              14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24};

TEST(VirtualOrder, TheInterfaceHasTwentyThreeOperationsAfterTheDestructor) {
    EXPECT_THAT(PlacesOf<Rest::RestClientInterface>(),
                ElementsAreArray(kTwentyThreeAfterTheDestructor));
}

TEST(VirtualOrder, TheEngineKeepsItAndCheckResponseIsTheTwentyFourth) {
    EXPECT_THAT(PlacesOf<Rest::RestClient>(), ElementsAreArray(kTwentyThreeAfterTheDestructor));
    EXPECT_EQ(25, PlaceOf(&Rest::RestClient::CheckResponse));
}

TEST(VirtualOrder, TheRedfishClientKeepsItAndCheckResponseIsTheTwentyFourth) {
    EXPECT_THAT(PlacesOf<Rest::RedfishClient>(), ElementsAreArray(kTwentyThreeAfterTheDestructor));
    EXPECT_EQ(25, PlaceOf(&Rest::RedfishClient::CheckResponse));
}

TEST(VirtualOrder, TheRedfishClientIsNoEngine) {
    EXPECT_FALSE((std::is_base_of_v<Rest::RestClient, Rest::RedfishClient>));
    EXPECT_TRUE((std::is_base_of_v<Rest::RestClientInterface, Rest::RedfishClient>));
}

}  // namespace
