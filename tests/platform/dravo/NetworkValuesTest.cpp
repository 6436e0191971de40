// The network value types: text forms both ways, refusal of bad text, and
// the family, masking, order and hash that keys rely on.
#include <gtest/gtest.h>

#include "platform/dravo/EthAddr.h"
#include "platform/dravo/IpGenPrefix.h"
#include "platform/kiv/Exception.h"

namespace {

using namespace Dravo;

// T(text) prints as `canonical`, and the canonical text reads back as the same value.
template <class T>
void expectTextForm(const char* text, const char* canonical) {
  const T v(text);
  EXPECT_EQ(v.stringValue(), canonical) << text;
  EXPECT_EQ(T(canonical), v) << canonical;
}

TEST(NetworkValues, TextFormsRoundTrip) {
  expectTextForm<IpAddr>("10.1.2.3", "10.1.2.3");
  EXPECT_EQ(IpAddr("10.1.2.3").value(), 0x0a010203u);
  expectTextForm<Ip6Addr>("2001:DB8:0:0:1:0:0:1", "2001:db8::1:0:0:1");
  expectTextForm<IpGenAddr>("192.0.2.1", "192.0.2.1");
  expectTextForm<IpGenAddr>("fe80:0::1:2", "fe80::1:2");
  expectTextForm<IpGenPrefix>("10.255.1.1/13", "10.248.0.0/13");
  expectTextForm<IpGenPrefix>("10.1.2.3", "10.1.2.3/32");
  expectTextForm<IpGenPrefix>("2001:db8::ffff/120", "2001:db8::ff00/120");
  expectTextForm<IpGenAddrWithMask>("10.1.2.3/24", "10.1.2.3/24");
  expectTextForm<IpGenAddrWithMask>("2001:db8::5", "2001:db8::5/128");
  expectTextForm<EthAddr>("02:1C:73:0a:00:99", "02:1c:73:0a:00:99");
}

TEST(NetworkValues, BadTextThrowsRangeException) {
  for (const char* t : {"", "10.1.1", "10.1.1.256", "10.1.1.1 ", "01.2.3.4", "::1"})
    EXPECT_THROW(IpAddr{t}, Kiv::RangeException) << t;
  for (const char* t : {"", "1::2::3", "gggg::", "10.1.1.1"})
    EXPECT_THROW(Ip6Addr{t}, Kiv::RangeException) << t;
  for (const char* t : {"junk", "10.1.1.1/24", " 10.1.1.1"})
    EXPECT_THROW(IpGenAddr{t}, Kiv::RangeException) << t;
  for (const char* t : {"10.0.0.0/33", "10.0.0.0/", "10.0.0.0/24x", "2001:db8::/129", "/24"}) {
    EXPECT_THROW(IpGenPrefix{t}, Kiv::RangeException) << t;
    EXPECT_THROW(IpGenAddrWithMask{t}, Kiv::RangeException) << t;
  }
  EXPECT_THROW(IpGenPrefix(IpGenAddr("10.0.0.0"), 33), Kiv::RangeException);
  for (const char* t : {"02:1c:73:00:00", "02:1c:73:00:00:99:", "02-1c-73-00-00-99",
                        "2:1c:73:00:00:99", "02:1c:73:00:00:9g"})
    EXPECT_THROW(EthAddr{t}, Kiv::RangeException) << t;
}

TEST(NetworkValues, StringValueIsDropsTheLengthAndIgnoresJunk) {
  IpGenAddr a("192.0.2.9");
  for (auto [text, address] :
       {std::pair{"2001:db8::1/64", "2001:db8::1"}, {"10.1.1.1/24", "10.1.1.1"}})
    EXPECT_TRUE(a.stringValueIs(text) && a == IpGenAddr(address)) << text;
  for (const char* junk : {"", "junk", "10.1.1.1x", "/24", "10.1.1.1/", "10.1.1.1/x",
                           "10.1.1.1/24/8", "10.1.1.1/33"}) {
    EXPECT_FALSE(a.stringValueIs(junk)) << junk;
    EXPECT_EQ(a, IpGenAddr("10.1.1.1")) << junk;
  }
}

TEST(NetworkValues, FamilyMaskOrderAndHash) {
  for (auto [text, family] : {std::pair{"", 0}, {"10.0.0.1", 1}, {"::1", 2}})
    EXPECT_EQ(int((*text ? IpGenAddr(text) : IpGenAddr()).family()), family) << text;

  const IpGenPrefix subnet("10.1.2.3/24");
  EXPECT_EQ(subnet, IpGenPrefix(IpGenAddr("10.1.2.200"), 24));
  EXPECT_TRUE(subnet.contains(IpGenAddr("10.1.2.255")));
  EXPECT_FALSE(subnet.contains(IpGenAddr("10.1.3.0")));
  EXPECT_FALSE(IpGenPrefix("::/0").contains(IpGenAddr("10.1.2.3")));
  const IpGenAddrWithMask vip("10.1.2.3/24");
  EXPECT_EQ(vip.address(), IpGenAddr("10.1.2.3")) << "an address with mask keeps its host bits";
  EXPECT_EQ(vip.v4Subnet(), subnet);
  EXPECT_EQ(IpGenAddrWithMask("2001:db8::5/64").v4Subnet(), IpGenPrefix());

  // Unset < IPv4 < IPv6; within a family, numeric; prefixes by address, then length.
  EXPECT_LT(IpGenAddr(), IpGenAddr("255.255.255.255"));
  EXPECT_LT(IpGenAddr("255.255.255.255"), IpGenAddr("::"));
  EXPECT_LT(IpGenAddr("10.0.0.2"), IpGenAddr("10.0.0.10"));
  EXPECT_LT(IpGenPrefix("10.0.0.0/8"), IpGenPrefix("10.0.0.0/16"));

  // Equal values hash alike however they were made; the family takes part.
  EXPECT_EQ(IpGenAddr(IpAddr(0x0a000001u)).hash(), IpGenAddr("10.0.0.1").hash());
  EXPECT_NE(IpGenAddr(Ip6Addr(Ip6Addr::Bytes{10, 0, 0, 1})).hash(), IpGenAddr("10.0.0.1").hash());
  EXPECT_EQ(IpGenAddrWithMask("10.1.2.0/24").hash(), IpGenPrefix("10.1.2.0/24").hash())
      << "address with mask and prefix share the prefix-base hash";
  EXPECT_EQ(kivHash(IpGenAddr("10.0.0.1")), Kiv::bitReverse(IpGenAddr("10.0.0.1").hash()));
}

}  // namespace
