// SimConnect.cfg: which file, which section, which keys, and the endpoints tried in order.
#include "simlink/simconnect/config.h"
#include "support/scratch.h"

#include <gtest/gtest.h>

namespace ory {
namespace {

const char* lf_sample = "; two sections, keys in any case\n"
                        "[SimConnect]\n"
                        "Protocol=IPv4\n"
                        "Address = 192.168.1.20 \n"
                        "Port=500 ; the simulator's fixed port\n"
                        "MaxReceiveSize=8192\n"
                        "\n"
                        "[simconnect.2]\r\n"
                        "PROTOCOL=ipv6\r\n"
                        "port=4506\r\n"
                        "maxreceivesize=200000\r\n"
                        "DisableNagle=1\r\n"
                        "[SimConnect.3]\n"
                        "Protocol=Carrier pigeon\n";

TEST(SimConnectConfig, SectionsAreChosenByConfigIndex) {
  const SimConnectConfig zero = parseSimConnectConfig(lf_sample, 0);
  EXPECT_EQ(zero.protocol, SimProtocol::ipv4);
  EXPECT_EQ(zero.address, "192.168.1.20");
  EXPECT_EQ(zero.port, "500");
  EXPECT_EQ(zero.maxReceiveSize, 41088u) << "a smaller receive size doesn't count";
  EXPECT_FALSE(zero.disableNagle);

  const SimConnectConfig two = parseSimConnectConfig(lf_sample, 2);
  EXPECT_EQ(two.protocol, SimProtocol::ipv6);
  EXPECT_EQ(two.address, "");
  EXPECT_EQ(two.port, "4506");
  EXPECT_EQ(two.maxReceiveSize, 200000u);
  EXPECT_TRUE(two.disableNagle);

  EXPECT_EQ(parseSimConnectConfig(lf_sample, 3).protocol, SimProtocol::autoOrPipe)
      << "unknown protocol: Auto";
  const SimConnectConfig missing = parseSimConnectConfig(lf_sample, 7);
  EXPECT_EQ(missing.protocol, SimProtocol::autoOrPipe);
  EXPECT_EQ(missing.port, "");
}

class SimConnectConfigFiles : public test::InScratchFolder {};

TEST_F(SimConnectConfigFiles, PublicDocumentsComeFirstThenUserDocumentsThenTheCurrentFolder) {
  const auto candidates = simConnectConfigCandidates();
  ASSERT_EQ(candidates.size(), 3u);
  EXPECT_EQ(readSimConnectConfig(0).file, std::filesystem::path()) << "no file: the defaults";

  test::writeBytes(candidates[2], "[SimConnect]\nPort=3\n");
  EXPECT_EQ(readSimConnectConfig(0).port, "3");
  test::writeBytes(candidates[1], "[SimConnect]\nPort=2\n");
  EXPECT_EQ(readSimConnectConfig(0).port, "2");
  test::writeBytes(candidates[0], "[SimConnect.1]\nPort=1\n");
  const SimConnectConfig found = readSimConnectConfig(0);
  EXPECT_EQ(found.file, candidates[0]) << "the first file found counts, even without the section";
  EXPECT_EQ(found.port, "");
  EXPECT_EQ(readSimConnectConfig(1).port, "1");
}

std::string lf_published(SimProtocol protocol) {
  return protocol == SimProtocol::ipv4 ? "49001" : "49002";
}
std::string lf_nonePublished(SimProtocol) {
  return {};
}

std::vector<std::string> lf_plan(const SimConnectConfig& config, std::string (*published)(SimProtocol)) {
  std::vector<std::string> texts;
  for (const SimEndpoint& endpoint : connectionPlan(config, published))
    texts.push_back(endpoint.text());
  return texts;
}

TEST(SimConnectConfig, TheConnectionPlanFollowsTheProtocol) {
  using Plan = std::vector<std::string>;
  EXPECT_EQ(lf_plan(parseSimConnectConfig(lf_sample, 0), lf_published), (Plan{"192.168.1.20:500"}));
  EXPECT_EQ(lf_plan(parseSimConnectConfig("[SimConnect]\nProtocol=IPv4\n", 0), lf_published),
            (Plan{"localhost:49001"}))
      << "an IP protocol without a port takes the published one";
  EXPECT_EQ(lf_plan(parseSimConnectConfig("[SimConnect]\nProtocol=IPv6\n", 0), lf_nonePublished), Plan{})
      << "no port anywhere: nothing to try";
  EXPECT_EQ(lf_plan(parseSimConnectConfig("[SimConnect]\nProtocol=IPv4\nPort=70000\n", 0), lf_published),
            Plan{});
  EXPECT_EQ(
      lf_plan(SimConnectConfig{}, lf_published),
      (Plan{"\\\\.\\pipe\\Lockheed Martin Prepar3D v5\\SimConnect", "[localhost]:49002", "localhost:49001"}))
      << "Auto: the local pipe first, then IPv6 and IPv4";
  EXPECT_EQ(lf_plan(parseSimConnectConfig("[SimConnect]\nProtocol=Pipe\nAddress=simpc\nPort=MySim\n", 0),
                    lf_nonePublished),
            (Plan{"\\\\simpc\\pipe\\MySim"}));
}

} // namespace
} // namespace ory
