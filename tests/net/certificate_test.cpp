// Which certificates a probe accepts: any date and any name, and no other fault.

#include <fstream>

#include "tests/net/net_fixture.h"
#include "tests/scratch_folder.h"

namespace qx::net_test {
namespace {

constexpr long kDay = 24 * 3600;

class Certificates : public NetTest {
 protected:
  Certificates() { Trust(Pem(authority_)); }

  void Trust(const std::string& pem, const std::string& revoked = "") {
    ProbeOptions options = CQXWebUtil::Options();
    options.authorities_file = Written("authorities.pem", pem);
    options.revoked_file = revoked.empty() ? "" : Written("revoked.pem", revoked);
    CQXWebUtil::SetOptions(options);
  }
  std::string Written(const std::string& name, const std::string& text) const {
    std::ofstream(folder_.Path(name), std::ios::binary) << text;
    return folder_.Path(name);
  }
  static int Served(const Identity& identity) {
    LoopbackServer server(LoopbackServer::AnsweringSecurely(identity, Response("200 OK")));
    return Connected("https://" + server.Host() + "/");
  }

  ScratchFolder folder_;
  Identity authority_ = Issue({.name = "Trusted Authority", .authority = true});
  Identity stranger_ = Issue({.name = "Strange Authority", .authority = true});
};

TEST_F(Certificates, FaultsOfDateAndNameAreForgivenAndNoOthers) {
  const auto issued = [&](Wish wish) {
    if (!wish.issuer) wish.issuer = &authority_;
    return Issue(wish);
  };
  struct Case {
    const char* what;
    Identity identity;
    int expected;
  };
  std::vector<Case> cases;
  const auto add = [&](const char* what, Identity identity, int expected) {
    cases.push_back({what, std::move(identity), expected});
  };
  add("good", issued({}), 1);
  add("expired", issued({.valid_from_s = -2 * kDay, .valid_to_s = -kDay}), 1);
  add("not valid yet", issued({.valid_from_s = kDay, .valid_to_s = 2 * kDay}), 1);
  add("of another name", issued({.name = "elsewhere.test"}), 1);
  add("of another name and expired",
      issued({.name = "elsewhere.test", .valid_from_s = -2 * kDay, .valid_to_s = -kDay}), 1);
  add("self-signed", Issue({}), 1);
  add("self-signed, of another name", Issue({.name = "elsewhere.test"}), 1);
  add("self-signed and expired", Issue({.valid_from_s = -2 * kDay, .valid_to_s = -kDay}), 1);
  add("self-signed and not valid yet", Issue({.valid_from_s = kDay, .valid_to_s = 2 * kDay}), 1);

  add("of an unknown issuer", issued({.issuer = &stranger_}), 0);
  add("of an unknown issuer and expired",
      issued({.valid_from_s = -2 * kDay, .valid_to_s = -kDay, .issuer = &stranger_}), 0);
  add("of an unknown issuer and another name",
      issued({.name = "elsewhere.test", .issuer = &stranger_}), 0);
  Identity with_chain = issued({.issuer = &stranger_});
  with_chain.chain = {stranger_.certificate.get()};
  add("of an unknown issuer that is sent along", std::move(with_chain), 0);
  add("with a signature that is not its issuer's", issued({.signed_with = &stranger_}), 0);
  add("self-signed with a signature that is not its own", Issue({.signed_with = &stranger_}), 0);
  const Identity no_authority = issued({.name = "no authority"});
  Identity below = issued({.issuer = &no_authority});
  below.chain = {no_authority.certificate.get()};
  add("issued by one that may not issue", std::move(below), 0);

  for (const Case& test : cases) EXPECT_EQ(Served(test.identity), test.expected) << test.what;
}

TEST_F(Certificates, AnExpiredAuthorityThatIsTrustedIsForgiven) {
  const Identity old =
      Issue({.name = "Old", .valid_from_s = -2 * kDay, .valid_to_s = -kDay, .authority = true});
  const Identity server = Issue({.issuer = &old});
  EXPECT_EQ(Served(server), 0);
  Trust(Pem(old));
  EXPECT_EQ(Served(server), 1);
}

TEST_F(Certificates, RevokedOnesAreRefused) {
  const Identity kept = Issue({.issuer = &authority_});
  const Identity revoked = Issue({.issuer = &authority_});
  const Identity revoked_and_old =
      Issue({.valid_from_s = -2 * kDay, .valid_to_s = -kDay, .issuer = &authority_});
  EXPECT_EQ(Served(revoked), 1) << "without a list";
  Trust(Pem(authority_), RevocationPem(authority_, {&revoked, &revoked_and_old}));
  EXPECT_EQ(Served(kept), 1);
  EXPECT_EQ(Served(revoked), 0);
  EXPECT_EQ(Served(revoked_and_old), 0);
  EXPECT_EQ(Served(Issue({})), 0) << "no list tells of a self-signed one";
}

TEST_F(Certificates, FilesThatCannotBeReadRefuseAll) {
  const Identity good = Issue({.issuer = &authority_});
  Trust("no certificate");
  EXPECT_EQ(Served(good), 0);
  ProbeOptions options = CQXWebUtil::Options();
  options.authorities_file = folder_.Path("missing.pem");
  CQXWebUtil::SetOptions(options);
  EXPECT_EQ(Served(good), 0);
}

TEST_F(Certificates, OfPlainAddressesThereAreNone) {
  LoopbackServer server(
      LoopbackServer::Answering([](const std::string&) { return Response("200 OK"); }));
  EXPECT_EQ(Connected("http://" + server.Host() + "/?to=https://elsewhere"), 1);
}

}  // namespace
}  // namespace qx::net_test
