// A repository that opens quickly.
#pragma once

#include <fstream>
#include <string>

#include "daemon/engine/RepositoryConfig.h"
#include "tests/support/TemporaryFolder.h"

namespace keldane::testing {

/// The storage program needs a second to open a repository, because guessing a key must be slow. The key file
/// of this repository demands no such effort. Otherwise it is an ordinary empty repository.
struct QuickRepository {
  static constexpr char kKey[] = "N2DXXZSFRVHL5YRKCNCH5M6XP3RBGMWXYFXZINIW5IATDVB7JPBQ";
  static constexpr char kId[] = "e91ea2c6fa7574044a1734ae2e2ffe32b66dbe365128ebd600c1275b77baba3e";

  /// Writes the repository into the folder of the configuration, with its key and id, as if it had been made
  /// there.
  static void make(const RepositoryFiles& files) {
    RepositoryConfig configuration = files.configuration().value();
    write(configuration.localFolder().value());
    configuration.repositoryId = kId;
    files.setKey(kKey);
    files.setConfiguration(configuration);
  }
  static void write(const std::string& folder) {
    for (const char* name : {"data", "index", "keys", "locks", "snapshots"}) {
      std::filesystem::create_directories(folder + "/" + name);
    }
    std::ofstream(folder + "/config", std::ios::binary) << decoded(kConfig);
    std::ofstream(folder + "/keys/" + kKeyName, std::ios::binary) << kKeyFile;
  }

 private:
  static constexpr char kKeyName[] = "58c1db7769dc7b05da0739f365d43dc2360c707a398dfe51e17a3bd045308456";
  static constexpr char kKeyFile[] =
      R"({"created": "2026-01-01T00:00:00Z", "username": "test", "hostname": "test", "kdf": "scrypt", "N": 2, "r": 1, )"
      R"("p": 1, "salt": "4N0SVjZ5mBcD7fcwMOuwP7IvbpFXso7ZlOtvGv/Uhb7S4xMS87ha69o238ucrpOUE+eF5KbH6fvSv1ce6Iwggg==", )"
      R"("data": "+Etf4KyVDGYka/499SoGA2rkr97sxZzYzzqyMm3ykaKn4JxpPlCgwASYx6l0UadMhCaoP53t7bf0ggULNzkxa0xXv37aoEkW)"
      R"(QTbH0Eus/xk0wvWjVCuEt1TQYc+QGrIxv6C+03ZxZR21uRXGY6bSLESv3aAe01meR9gbX63d2uoJWWToFCgNAMh7Bynj4BE2ceEm34lVBLTcG)"
      R"(cUyX0l5+w=="})";
  static constexpr char kConfig[] =
      "0seKWDM/pPM0fkR8JcKBGlqI0LPj796dA2EK2I1NGBMWW8QEFTQsWFlVmBEETiK0/"
      "eNrnGwI8ZHmiHqbYL1EMwUgBd5ZtFiNDDdv2X3kWuloFEV2"
      "rBU7Dk0Q7LqmXQVoCSSFCbwjUuth+1PM/JjTAdWXds1f1SqL8eZ2rFiFOPeQJahVbmOA7vxlSCq+YB/MMXKU80tdf72Xqso=";

  static std::string decoded(std::string_view base64) {
    constexpr std::string_view kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    unsigned pending = 0;
    int bits = 0;
    for (const char letter : base64.substr(0, base64.find('='))) {
      pending = (pending << 6) | static_cast<unsigned>(kLetters.find(letter));
      bits += 6;
      if (bits >= 8) {
        bits -= 8;
        bytes.push_back(static_cast<char>(pending >> bits));
      }
    }
    return bytes;
  }
};

}  // namespace keldane::testing
