// Attacks on a real `velqor-camera serve` over loopback: each one is refused
// with a clear status (or a closed connection), the server's memory stays
// bounded, and the server still answers a plain request afterwards.
#include <functional>
#include <thread>

#include <gtest/gtest.h>

#include "platform/linux/SampleImages.h"
#include "tests/RawHttpClient.h"
#include "tests/ServeProcess.h"
#include "tests/TestDirectory.h"

namespace velqor {
namespace {

using testing::RawHttpClient;
using testing::ServeProcess;
using testing::TestDirectory;
using namespace std::chrono_literals;

constexpr size_t kMiB = size_t{1} << 20;

std::string binary() { return std::string(VELQOR_BINARY_DIR) + "/velqor-camera"; }

class ServeFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    server_ = std::make_unique<ServeProcess>(binary(), dir_.root());
    ASSERT_GT(server_->port(), 0) << "serve did not start";
  }
  void TearDown() override { EXPECT_EQ(server_->stop(), 0) << "serve did not stop cleanly"; }

 public:  // for the attack table's functions
  std::string host() const { return "Host: 127.0.0.1:" + std::to_string(server_->port()) + "\r\n"; }
  // One request on a fresh connection; the raw answer.
  std::string exchange(const std::string& request, std::chrono::milliseconds limit = 5s) {
    UniqueFd fd = RawHttpClient::connectTo(server_->port());
    if (!fd.valid() || !RawHttpClient::sendAll(fd.get(), request)) return "";
    return RawHttpClient::readAnswer(fd.get(), limit);
  }
  int stateStatus() { return RawHttpClient::status(exchange("GET /api/state HTTP/1.1\r\n" + host() + "\r\n")); }
  std::string post(const std::string& path, const std::string& type, const std::string& body,
                   const std::string& extra = "X-Velqor-Request: 1\r\n") {
    return "POST " + path + " HTTP/1.1\r\n" + host() + "Content-Type: " + type + "\r\n" + extra +
           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  }

  TestDirectory dir_;
  std::unique_ptr<ServeProcess> server_;
};

// ---- hostile requests, each against a fresh server --------------------------

struct Attack {
  const char* name;
  // Sends the attack; returns the status answered, 0 when the server closed
  // the connection without one.
  std::function<int(ServeFixture&, int port)> send;
  std::vector<int> refusedWith;
  long maxGrowthMiB;
};
void PrintTo(const Attack& c, std::ostream* os) { *os << c.name; }

class HostileRequests : public ServeFixture, public ::testing::WithParamInterface<Attack> {};

TEST_P(HostileRequests, RefusedWithoutHarm) {
  const Attack& a = GetParam();
  ASSERT_EQ(stateStatus(), 200);
  const long before = server_->memoryKiB("VmHWM:");
  const int status = a.send(*this, server_->port());
  EXPECT_TRUE(std::find(a.refusedWith.begin(), a.refusedWith.end(), status) != a.refusedWith.end())
      << "answered " << status;
  const long growthMiB = (server_->memoryKiB("VmHWM:") - before) / 1024;
  EXPECT_LE(growthMiB, a.maxGrowthMiB) << "peak memory grew by " << growthMiB << " MiB";
  RecordProperty("peakGrowthKiB", std::to_string(server_->memoryKiB("VmHWM:") - before));
  EXPECT_TRUE(server_->running());
  EXPECT_EQ(stateStatus(), 200) << "the server stopped serving others";
  // Nothing of a refused upload is left behind.
  size_t leftovers = 0;
  for (const auto& e : std::filesystem::recursive_directory_iterator(dir_.root()))
    if (e.path().filename().string().rfind("upload-", 0) == 0) ++leftovers;
  EXPECT_EQ(leftovers, 0u);
}

int sendText(ServeFixture& f, const std::string& request) {
  UniqueFd fd = RawHttpClient::connectTo(f.server_->port());
  RawHttpClient::sendAll(fd.get(), request);
  return RawHttpClient::status(RawHttpClient::readAnswer(fd.get(), 10s));
}

// Streams `total` bytes of chunked body in 1 MiB chunks until the server stops reading.
int sendChunked(ServeFixture& f, const std::string& path, const std::string& type, size_t total) {
  UniqueFd fd = RawHttpClient::connectTo(f.server_->port());
  std::string head = "POST " + path + " HTTP/1.1\r\n" + f.host() + "Content-Type: " + type +
                     "\r\nX-Velqor-Request: 1\r\nTransfer-Encoding: chunked\r\n\r\n";
  if (type.rfind("multipart", 0) == 0) {
    head += "100\r\n";
    std::string part = "--Bq7x\r\nContent-Disposition: form-data; name=\"file\"; filename=\"a.jpg\"\r\n\r\n";
    part.resize(256, 'x');
    head += part + "\r\n";
  }
  RawHttpClient::sendAll(fd.get(), head);
  const std::string chunk = "100000\r\n" + std::string(kMiB, '[') + "\r\n";
  for (size_t sent = 0; sent < total; sent += kMiB)
    if (!RawHttpClient::sendAll(fd.get(), chunk)) break;
  RawHttpClient::sendAll(fd.get(), "0\r\n\r\n");
  return RawHttpClient::status(RawHttpClient::readAnswer(fd.get(), 10s));
}

std::string manyHeaders(size_t count) {
  std::string h;
  for (size_t i = 0; i < count; ++i) h += "X-H" + std::to_string(i) + ": v\r\n";
  return h;
}

INSTANTIATE_TEST_SUITE_P(
    Attacks, HostileRequests,
    ::testing::Values(
        Attack{"DeepJsonBody",
               [](ServeFixture& f, int) {
                 return sendText(f, f.post("/api/call", "application/json",
                                           std::string(100000, '[') + std::string(100000, ']')));
               },
               {400}, 16},
        Attack{"DeepArgumentsInACall",
               [](ServeFixture& f, int) {
                 return sendText(f, f.post("/api/call", "application/json",
                                           R"({"operation":"takePicture","args":)" + std::string(30000, '[') +
                                               std::string(30000, ']') + "}"));
               },
               {400}, 16},
        Attack{"ChunkedJson700MiB",
               [](ServeFixture& f, int) { return sendChunked(f, "/api/call", "application/json", 700 * kMiB); },
               {411}, 16},
        Attack{"ChunkedUpload700MiB",
               [](ServeFixture& f, int) {
                 return sendChunked(f, "/api/picker/file", "multipart/form-data; boundary=Bq7x", 700 * kMiB);
               },
               {411}, 16},
        Attack{"DeclaredLength700MiB",
               [](ServeFixture& f, int) {
                 return sendText(f, "POST /api/picker/file HTTP/1.1\r\n" + f.host() +
                                        "Content-Type: multipart/form-data; boundary=Bq7x\r\nX-Velqor-Request: 1\r\n"
                                        "Content-Length: 734003200\r\n\r\n");
               },
               {413}, 16},
        Attack{"HundredThousandHeaders",
               [](ServeFixture& f, int) {
                 return sendText(f, "GET /api/state HTTP/1.1\r\n" + f.host() + manyHeaders(100000) + "\r\n");
               },
               {0, 413, 431}, 16},
        Attack{"HeadersJustPastTheCount",
               [](ServeFixture& f, int) {
                 return sendText(f, "GET /api/state HTTP/1.1\r\n" + f.host() + manyHeaders(80) + "\r\n");
               },
               {431}, 16},
        Attack{"OneHugeHeaderLine",
               [](ServeFixture& f, int) {
                 return sendText(f, "GET /api/state HTTP/1.1\r\n" + f.host() + "X-Big: " + std::string(1 << 20, 'a') +
                                        "\r\n\r\n");
               },
               {0, 413, 431}, 16},
        Attack{"MetadataAsText",
               [](ServeFixture& f, int) { return sendText(f, f.post("/api/metadata", "text/plain", "hello")); },
               {415}, 16},
        Attack{"MetadataPastItsLimit",
               [](ServeFixture& f, int) {
                 return sendText(f, "POST /api/metadata HTTP/1.1\r\n" + f.host() +
                                        "Content-Type: image/jpeg\r\nContent-Length: 104857600\r\n\r\n");
               },
               {413}, 16},
        Attack{"LibraryDatabaseThroughFiles",
               [](ServeFixture& f, int) {
                 return sendText(f, "GET /files" + f.dir_.path("library") + "/library.sqlite HTTP/1.1\r\n" +
                                        f.host() + "\r\n");
               },
               {404}, 16},
        Attack{"LengthWithChunked",
               [](ServeFixture& f, int) {
                 return sendText(f, "POST /api/device HTTP/1.1\r\n" + f.host() +
                                        "Content-Type: application/json\r\nX-Velqor-Request: 1\r\n"
                                        "Content-Length: 4\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n");
               },
               {400}, 16},
        Attack{"LargerLengthFirst",
               [](ServeFixture& f, int) {
                 return sendText(f, "POST /api/device HTTP/1.1\r\n" + f.host() +
                                        "Content-Type: application/json\r\nX-Velqor-Request: 1\r\n"
                                        "Content-Length: 30\r\nContent-Length: 2\r\n\r\n{}");
               },
               {400}, 16},
        Attack{"SmallerLengthFirst",
               [](ServeFixture& f, int) {
                 return sendText(f, "POST /api/device HTTP/1.1\r\n" + f.host() +
                                        "Content-Type: application/json\r\nX-Velqor-Request: 1\r\n"
                                        "Content-Length: 2\r\nContent-Length: 30\r\n\r\n{}");
               },
               {400}, 16},
        Attack{"GzipThenChunked",
               [](ServeFixture& f, int) {
                 return sendText(f, "POST /api/device HTTP/1.1\r\n" + f.host() +
                                        "Content-Type: application/json\r\nX-Velqor-Request: 1\r\n"
                                        "Transfer-Encoding: gzip, chunked\r\n\r\n2\r\n{}\r\n0\r\n\r\n");
               },
               {400}, 16},
        Attack{"ChunkSizePastSixtyFourBits",
               [](ServeFixture& f, int) {
                 return sendText(f, "POST /api/device HTTP/1.1\r\n" + f.host() +
                                        "Content-Type: application/json\r\nX-Velqor-Request: 1\r\n"
                                        "Transfer-Encoding: chunked\r\n\r\nfffffffffffffffff\r\n{}");
               },
               {411}, 16},
        Attack{"ChunkSizeOfSixtyFourBits",
               [](ServeFixture& f, int) {
                 return sendText(f, "POST /api/device HTTP/1.1\r\n" + f.host() +
                                        "Content-Type: application/json\r\nX-Velqor-Request: 1\r\n"
                                        "Transfer-Encoding: chunked\r\n\r\nffffffffffffffff\r\n{}");
               },
               {411}, 16},
        Attack{"RebindingHostName",
               [](ServeFixture& f, int) {
                 return sendText(f, "GET /api/state HTTP/1.1\r\nHost: attacker.example\r\n\r\n");
               },
               {403}, 16}),
    [](const auto& info) { return std::string(info.param.name); });

// ---- framing: one refusal, the connection closed, nothing run ---------------

struct Framing {
  const char* name;
  std::string fields;  // the framing header fields of a POST /api/device
  std::string body;
  int status = 400;
};
void PrintTo(const Framing& c, std::ostream* os) { *os << c.name; }

class AmbiguousFraming : public ServeFixture, public ::testing::WithParamInterface<Framing> {};

TEST_P(AmbiguousFraming, IsRefusedAndTheConnectionClosedBeforeAnythingRuns) {
  const Framing& c = GetParam();
  UniqueFd fd = RawHttpClient::connectTo(server_->port());
  // The call and a pipelined request behind it: neither may be served.
  RawHttpClient::sendAll(fd.get(), "POST /api/device HTTP/1.1\r\n" + host() +
                                       "Content-Type: application/json\r\nX-Velqor-Request: 1\r\n" + c.fields +
                                       "\r\n" + c.body + "GET /api/state HTTP/1.1\r\n" + host() + "\r\n");
  const timeval limit{5, 0};  // a connection left open fails the test instead of hanging it
  ::setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  std::string answers;
  char buffer[8192];
  for (ssize_t n; (n = ::recv(fd.get(), buffer, sizeof buffer, 0)) > 0;) answers.append(buffer, static_cast<size_t>(n));
  const int status = RawHttpClient::status(answers);
  EXPECT_EQ(status, c.status) << answers;
  EXPECT_NE(answers.find("Connection: close"), std::string::npos) << answers;
  EXPECT_EQ(answers.find("HTTP/1.1", 1), std::string::npos) << "the pipelined request was answered:\n" << answers;
  const std::string state = exchange("GET /api/state HTTP/1.1\r\n" + host() + "\r\n");
  EXPECT_NE(state.find("\"cameraAccess\":\"authorized\""), std::string::npos) << "the call ran";
}

const std::string kDenied = R"({"cameraAccess":"denied"})";
std::string chunked(const std::string& body) {
  char size[32];
  std::snprintf(size, sizeof size, "%zx", body.size());
  return size + std::string("\r\n") + body + "\r\n0\r\n\r\n";
}

INSTANTIATE_TEST_SUITE_P(
    Fields, AmbiguousFraming,
    ::testing::Values(
        Framing{"LengthWithChunked", "Content-Length: 25\r\nTransfer-Encoding: chunked\r\n", chunked(kDenied)},
        Framing{"ChunkedWithLength", "Transfer-Encoding: chunked\r\nContent-Length: 25\r\n", chunked(kDenied)},
        Framing{"LargerLengthFirst", "Content-Length: 60\r\nContent-Length: 25\r\n", kDenied},
        Framing{"SmallerLengthFirst", "Content-Length: 25\r\nContent-Length: 60\r\n", kDenied},
        Framing{"GzipThenChunked", "Transfer-Encoding: gzip, chunked\r\n", chunked(kDenied)},
        Framing{"Chunked", "Transfer-Encoding: chunked\r\n", chunked(kDenied), 411},
        Framing{"ChunkSizeOfSixtyFourBits", "Transfer-Encoding: chunked\r\n",
                "ffffffffffffffff\r\n" + kDenied + "\r\n0\r\n\r\n", 411},
        Framing{"ChunkSizePastSixtyFourBits", "Transfer-Encoding: chunked\r\n",
                "fffffffffffffffff\r\n" + kDenied + "\r\n0\r\n\r\n", 411}),
    [](const auto& info) { return std::string(info.param.name); });

// ---- answers to readers that never read --------------------------------------

// Large data-URL answers, then 128 connections (the server's cap) from eight
// addresses that ask for them, the summary and the event stream with a small
// receive buffer and never read: the payload is held once, not per reader.
TEST_F(ServeFixture, ReadersThatNeverReadCostTheirSocketsNotCopies) {
  auto photo = SampleImages::cameraJpeg(3000, 2000, 1, 100);
  ASSERT_TRUE(photo.ok());
  const std::string bytes(photo->begin(), photo->end());
  for (int i = 0; i < 2; ++i) {
    exchange(post("/api/call", "application/json",
                  R"({"operation":"takePicture","args":[100,0,1,null,null,0,0,false,false,false,null,false,false]})"));
    std::string picked;
    for (int tries = 0; tries < 200 && RawHttpClient::status(picked) != 200; ++tries) {
      const std::string form = "--Bq7x\r\nContent-Disposition: form-data; name=\"kind\"\r\n\r\nphoto\r\n--Bq7x\r\n"
                               "Content-Disposition: form-data; name=\"file\"; filename=\"p.jpg\"\r\n\r\n" +
                               bytes + "\r\n--Bq7x--\r\n";
      picked = exchange(post("/api/picker/file", "multipart/form-data; boundary=Bq7x", form), 20s);
    }
    ASSERT_EQ(RawHttpClient::status(picked), 200) << picked.substr(0, 300);
    // The answer is pushed on the event stream when it comes.
    const std::string count = "\"answerCount\":" + std::to_string(i + 1);
    UniqueFd events = RawHttpClient::connectTo(server_->port());
    RawHttpClient::sendAll(events.get(), "GET /api/events HTTP/1.1\r\n" + host() + "\r\n");
    std::string pushed;
    const auto end = std::chrono::steady_clock::now() + 60s;
    while (pushed.find(count) == std::string::npos && std::chrono::steady_clock::now() < end) {
      pollfd p{events.get(), POLLIN, 0};
      char buffer[4096];
      if (::poll(&p, 1, 1000) > 0) {
        const ssize_t n = ::recv(events.get(), buffer, sizeof buffer, 0);
        if (n <= 0) break;
        pushed.append(buffer, static_cast<size_t>(n));
      }
    }
    ASSERT_NE(pushed.find(count), std::string::npos) << pushed.substr(0, 2000);
  }
  const std::string whole = exchange("GET /api/answers/1 HTTP/1.1\r\n" + host() + "\r\n", 20s);
  ASSERT_EQ(RawHttpClient::status(whole), 200);
  ASSERT_GT(whole.size(), 2 * kMiB) << "the answer is not large enough to show anything";
  RecordProperty("answerBytes", std::to_string(whole.size()));

  const long start = server_->memoryKiB();
  std::vector<UniqueFd> readers;
  for (int i = 0; i < 128; ++i) {
    UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int small = 4096;
    ::setsockopt(fd.get(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    sockaddr_in local{}, to{};
    local.sin_family = to.sin_family = AF_INET;
    ::inet_pton(AF_INET, ("127.0.0." + std::to_string(10 + i / 16)).c_str(), &local.sin_addr);
    ::inet_pton(AF_INET, "127.0.0.1", &to.sin_addr);
    to.sin_port = htons(static_cast<uint16_t>(server_->port()));
    ::bind(fd.get(), reinterpret_cast<sockaddr*>(&local), sizeof local);
    ASSERT_EQ(::connect(fd.get(), reinterpret_cast<sockaddr*>(&to), sizeof to), 0);
    const char* path = i % 8 == 0 ? "/api/state?answers=0" : i % 8 == 1 ? "/api/events" : i % 2 ? "/api/answers/0" : "/api/answers/1";
    RawHttpClient::sendAll(fd.get(), std::string("GET ") + path + " HTTP/1.1\r\n" + host() + "\r\n");
    readers.push_back(std::move(fd));
  }
  // The readers' requests are all being answered (or refused) by now: wait
  // until the server's memory stops moving.
  long now = server_->memoryKiB(), previous = 0;
  for (int i = 0; i < 50 && now != previous; ++i) {
    std::this_thread::sleep_for(100ms);
    previous = now;
    now = server_->memoryKiB();
  }
  const long growthMiB = (now - start) / 1024;
  RecordProperty("growthKiB", std::to_string(now - start));
  // AddressSanitizer adds redzones and a fake stack to each of the 128
  // connection threads; a copy of the answers per reader would still be
  // several hundred MiB past either bound.
#if defined(__SANITIZE_ADDRESS__)
  constexpr long kGrowthLimitMiB = 128;
#else
  constexpr long kGrowthLimitMiB = 64;
#endif
  EXPECT_LT(growthMiB, kGrowthLimitMiB) << "resident memory grew by " << growthMiB << " MiB with 128 readers";
  readers.clear();
  std::string state;
  for (int tries = 0; tries < 100 && RawHttpClient::status(state) != 200; ++tries) state = exchange("GET /api/state HTTP/1.1\r\n" + host() + "\r\n");
  EXPECT_EQ(RawHttpClient::status(state), 200) << "the server stopped serving after the readers left";
}

// ---- requests from another site -------------------------------------------

struct CrossSite {
  const char* name;
  std::string headers;  // what the browser sends for the other site's request
  std::string type;
};
void PrintTo(const CrossSite& c, std::ostream* os) { *os << c.name; }

class CrossSiteRequests : public ServeFixture, public ::testing::WithParamInterface<CrossSite> {};

TEST_P(CrossSiteRequests, AreRefusedOnEveryStateChangingRoute) {
  const CrossSite& c = GetParam();
  const std::string body = c.type.rfind("multipart", 0) == 0
                               ? "--Bq7x\r\nContent-Disposition: form-data; name=\"kind\"\r\n\r\nphoto\r\n--Bq7x--\r\n"
                               : std::string("{}");
  for (const char* route : {"/api/call", "/api/picker/file", "/api/picker/pick", "/api/picker/cancel", "/api/alert",
                            "/api/location", "/api/device"}) {
    const std::string answer = exchange(post(route, c.type, body, c.headers));
    EXPECT_EQ(RawHttpClient::status(answer), 403) << route;
  }
  EXPECT_EQ(stateStatus(), 200);
}

INSTANTIATE_TEST_SUITE_P(
    Sites, CrossSiteRequests,
    ::testing::Values(
        CrossSite{"NoCorsForm", "Origin: https://evil.example\r\nSec-Fetch-Site: cross-site\r\n",
                  "multipart/form-data; boundary=Bq7x"},
        CrossSite{"NoCorsText", "Origin: https://evil.example\r\nSec-Fetch-Site: cross-site\r\n", "text/plain"},
        CrossSite{"ForgedHeaderFromOtherOrigin",
                  "Origin: https://evil.example\r\nSec-Fetch-Site: cross-site\r\nX-Velqor-Request: 1\r\n",
                  "application/json"},
        CrossSite{"SameSiteOtherPort", "Origin: http://127.0.0.1:1\r\nSec-Fetch-Site: same-site\r\nX-Velqor-Request: 1\r\n",
                  "application/json"},
        CrossSite{"OldBrowserWithoutFetchMetadata", "Origin: null\r\n", "application/json"},
        CrossSite{"NoCustomHeader", "", "application/json"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(ServeFixture, ThePagesOwnRequestsPass) {
  const std::string origin = "Origin: http://127.0.0.1:" + std::to_string(server_->port()) + "\r\n";
  const std::string answer = exchange(post("/api/device", "application/json", R"({"cameraAccess":"denied"})",
                                           origin + "Sec-Fetch-Site: same-origin\r\nX-Velqor-Request: 1\r\n"));
  EXPECT_EQ(RawHttpClient::status(answer), 200) << answer;
  EXPECT_NE(answer.find("\"cameraAccess\":\"denied\""), std::string::npos) << answer;
  EXPECT_NE(answer.find("Cross-Origin-Resource-Policy: same-origin"), std::string::npos) << answer;
}

// ---- slow clients, connection caps, shutdown, the port ----------------------

// Clients that send one byte at a time, from their own addresses.
std::vector<UniqueFd> slowClients(int port, int count, int firstAddress) {
  std::vector<UniqueFd> clients;
  for (int i = 0; i < count; ++i) {
    clients.push_back(RawHttpClient::connectTo(port, "127.0.0." + std::to_string(firstAddress + i)));
    RawHttpClient::sendAll(clients.back().get(), "G");
  }
  return clients;
}

TEST_F(ServeFixture, SlowClientsNeitherStarveOthersNorStayForever) {
  auto slow = slowClients(server_->port(), 16, 2);
  for (auto& c : slow) RawHttpClient::sendAll(c.get(), "E");
  // A plain request is answered while all sixteen are connected (within a one-second read).
  UniqueFd fd = RawHttpClient::connectTo(server_->port());
  const auto start = std::chrono::steady_clock::now();
  RawHttpClient::sendAll(fd.get(), "GET /api/state HTTP/1.1\r\n" + host() + "\r\n");
  EXPECT_EQ(RawHttpClient::status(RawHttpClient::readAnswer(fd.get(), 1s)), 200);
  RecordProperty("answerMicroseconds", std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(
                                                          std::chrono::steady_clock::now() - start).count()));
  // Dribbling bytes does not keep a connection past the deadline for a request head.
  for (auto& c : slow) {
    RawHttpClient::sendAll(c.get(), "T");
    EXPECT_TRUE(RawHttpClient::closedBy(c.get(), 8s));
  }
}

TEST_F(ServeFixture, OneClientCannotTakeEveryConnection) {
  std::vector<UniqueFd> many;
  for (int i = 0; i < 24; ++i) many.push_back(RawHttpClient::connectTo(server_->port(), "127.0.0.9"));
  size_t closed = 0;
  for (auto& c : many) closed += RawHttpClient::closedBy(c.get(), 200ms);
  EXPECT_EQ(closed, 8u) << "the connections past the per-client cap are closed at once";
  EXPECT_EQ(stateStatus(), 200) << "another client is still served";
}

TEST_F(ServeFixture, StopsPromptlyWithSlowClientsConnected) {
  auto slow = slowClients(server_->port(), 8, 20);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(server_->stop(3s), 0) << "serve had to be killed";
  EXPECT_LT(std::chrono::steady_clock::now() - start, 3s);
  for (auto& c : slow) EXPECT_TRUE(RawHttpClient::closedBy(c.get(), 1s));
  server_ = std::make_unique<ServeProcess>(binary(), dir_.root());  // for TearDown
}

TEST_F(ServeFixture, ASecondServerOnTheSamePortFailsAndSaysWhy) {
  const std::string err = dir_.path("second.err");
  // Bounded: a second server that did bind would otherwise serve forever.
  const std::string command = "timeout 5 " + binary() + " serve --port " + std::to_string(server_->port()) + " --temp-dir " +
                              dir_.path("tmp2") + " --library " + dir_.path("library2") + " 2>" + err;
  const int status = std::system(("XDG_STATE_HOME=" + dir_.path("state") + " " + command).c_str());
  EXPECT_EQ(WEXITSTATUS(status), 2);
  EXPECT_NE(TestDirectory::read(err).find("already in use"), std::string::npos) << TestDirectory::read(err);
  EXPECT_EQ(stateStatus(), 200);
}

}  // namespace
}  // namespace velqor
