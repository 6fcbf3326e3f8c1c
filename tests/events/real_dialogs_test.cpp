// Dialogs of Debian's libvlc 3.0, headless: its http access asks for a login
// when a local server answers 401, and the answer decides what plays.
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <mutex>
#include <thread>

#include "tests/events/recorder.h"
#include "tests/events/watchdog.h"

namespace {

using emu::Host;
using emu::Value;
using namespace eventstest;
using namespace std::chrono_literals;

// Serves sample.mp4 on 127.0.0.1 from the asked offset on (libvlc asks for open ranges "bytes=N-" only) to
// requests carrying Basic credentials user:secret; every other request gets 401.
class AuthServer {
public:
    AuthServer() {
        std::ifstream in(qrvtest::SamplePath("sample.mp4"), std::ios::binary);
        body_.assign(std::istreambuf_iterator<char>(in), {});
        listener_ = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (bind(listener_, reinterpret_cast<sockaddr*>(&address), length) != 0 || listen(listener_, 8) != 0 ||
            getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0)
            return;
        port = ntohs(address.sin_port);
        acceptor_ = std::thread([this] {
            for (int fd; (fd = accept(listener_, nullptr, nullptr)) >= 0;) {
                std::lock_guard<std::mutex> hold(lock_);
                clients_.push_back(fd);
                connections_.emplace_back([this, fd] { Serve(fd); });
            }
        });
    }
    ~AuthServer() {
        shutdown(listener_, SHUT_RDWR);
        close(listener_);
        if (acceptor_.joinable()) acceptor_.join();
        std::lock_guard<std::mutex> hold(lock_);
        for (int fd : clients_) shutdown(fd, SHUT_RDWR);
        for (std::thread& t : connections_) t.join();
        for (int fd : clients_) close(fd);
    }
    std::string Url() const { return "http://127.0.0.1:" + std::to_string(port) + "/sample.mp4"; }

    int port = 0;
    std::atomic<int> served{0};

private:
    // Requests on one connection, kept alive as HTTP/1.1 allows; a blocking send writes all or fails.
    void Serve(int fd) {
        std::string pending;
        char buffer[4096];
        for (size_t end;;) {
            while ((end = pending.find("\r\n\r\n")) == std::string::npos) {
                ssize_t got = recv(fd, buffer, sizeof buffer, 0);
                if (got <= 0) return;
                pending.append(buffer, static_cast<size_t>(got));
            }
            std::string reply = Answer(pending.substr(0, end));
            pending.erase(0, end + 4);
            if (send(fd, reply.data(), reply.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(reply.size())) return;
        }
    }
    std::string Answer(const std::string& request) {
        if (request.find("\r\nAuthorization: Basic dXNlcjpzZWNyZXQ=\r\n") == std::string::npos) {
            return "HTTP/1.1 401 Unauthorized\r\nWWW-Authenticate: Basic realm=\"qrv\"\r\nContent-Length: 0\r\n\r\n";
        }
        ++served;
        size_t range = request.find("\r\nRange: bytes="), size = body_.size();
        size_t first =
            range == std::string::npos ? 0 : std::min<size_t>(strtoull(&request[range + 15], nullptr, 10), size);
        std::string status = range == std::string::npos
                                 ? "200 OK"
                                 : "206 Partial Content\r\nContent-Range: bytes " + std::to_string(first) + "-" +
                                       std::to_string(size - 1) + "/" + std::to_string(size);
        return "HTTP/1.1 " + status + "\r\nAccept-Ranges: bytes\r\nContent-Length: " + std::to_string(size - first) +
               "\r\n\r\n" + body_.substr(first);
    }

    std::string body_;
    int listener_ = -1;
    std::thread acceptor_;
    std::mutex lock_;
    std::vector<int> clients_;
    std::vector<std::thread> connections_;
};

class RealDialogs : public ::testing::Test {
protected:
    void SetUp() override {
        seen = &record;
        ASSERT_NE(server.port, 0);
        ASSERT_TRUE(qrvtest::LoadRealLibvlc(host));
        // The memory keystore: headless, a desktop keyring would be asked first, and slowly.
        vlc = host.New("VLCInstanceQRV",
                       {host.StringArray({"--intf=dummy", "--vout=dummy", "--aout=dummy", "--no-video-title-show",
                                          "--quiet", "--no-stats", "--keystore=memory"})});
        host.DefineSubclass("Logins", "VLCDialogQRV",
                            {On<"ErrorDialog", REALstring, REALstring>(),
                             On<"LoginDialog", RBInteger, REALstring, REALstring, REALstring, RBBoolean>()});
        dialog = host.New("Logins", {vlc});
        Value media = host.CallShared("VLCMediaQRV", "MediaWithURL", {vlc, host.String(server.Url())});
        player = host.New("VLCMediaPlayerQRV", {media});
        host.DefineSubclass("PlayerEvents", "VLCEventManagerQRV",
                            {On<"MediaPlayerPlaying">(), On<"MediaPlayerEncounteredError">()});
        events = host.New("PlayerEvents", {player});
        ASSERT_TRUE(host.Call(player, "Play").AsBool());
    }
    void TearDown() override { host.Call(player, "Stop"); }
    bool Raised(const std::string& line) {
        return std::find(seen->raised.begin(), seen->raised.end(), line) != seen->raised.end();
    }
    // The ids of the login dialogs raised so far.
    std::vector<int64_t> Logins() {
        std::vector<int64_t> ids;
        for (const std::string& arguments : ArgumentsOf("LoginDialog")) ids.push_back(std::stoll(arguments));
        return ids;
    }
    bool PostLogin(int64_t id, const char* password) {
        return host.Call(dialog, "PostLogin",
                         {Value::Int(id), host.String("user"), host.String(password), Value::Bool(false)})
                   .AsInt() == 1;
    }

    Watchdog watchdog{60s};
    AuthServer server;  // outlives libvlc's connections
    Host host;
    Seen record{&host};  // goes before the host
    Value vlc, dialog, player, events;
};

TEST_F(RealDialogs, TheRightLoginLetsTheStreamPlay) {
    ASSERT_TRUE(host.PumpUntil([&] { return !Logins().empty(); }, 15000ms)) << "no login asked";
    EXPECT_FALSE(seen->offMainThread);
    int64_t id = Logins()[0];
    EXPECT_EQ(ArgumentsOf("LoginDialog").at(0).substr(std::to_string(id).size()),
              " HTTP authentication Please enter a valid login name and a password for realm qrv. <nil> 1");
    EXPECT_TRUE(PostLogin(id, "secret"));
    EXPECT_TRUE(host.PumpUntil([&] { return Raised("MediaPlayerPlaying"); }, 15000ms));
    EXPECT_GT(server.served.load(), 0);
    EXPECT_FALSE(PostLogin(id, "secret")) << "an answered dialog is gone";
    EXPECT_EQ(Logins().size(), 1u);
}

TEST_F(RealDialogs, ADismissedLoginEndsInAnErrorAndLaterAnswersAreRefused) {
    // Each access module that tries asks once; every ask is dismissed.
    size_t dismissed = 0;
    auto failed = [&] {
        for (std::vector<int64_t> ids = Logins(); dismissed < ids.size(); ++dismissed)
            EXPECT_TRUE(host.Call(dialog, "Dismiss", {Value::Int(ids[dismissed])}).AsInt() == 1);
        return Raised("MediaPlayerEncounteredError");
    };
    ASSERT_TRUE(host.PumpUntil(failed, 15000ms));
    EXPECT_GE(dismissed, 1u);
    for (int64_t id : Logins()) EXPECT_FALSE(PostLogin(id, "secret")) << id;
    EXPECT_EQ(server.served.load(), 0);
    EXPECT_TRUE(host.PumpUntil([&] { return !ArgumentsOf("ErrorDialog").empty(); }, 5000ms))
        << "libvlc's error reaches the host too";
}

// libvlc's thread waits for the answer; the object's end gives it one.
TEST_F(RealDialogs, AnObjectDestroyedWithALoginOpenLetsLibvlcGoOn) {
    ASSERT_TRUE(host.PumpUntil([&] { return !Logins().empty(); }, 15000ms)) << "no login asked";
    host.Call(dialog, "Destructor");
    EXPECT_TRUE(host.PumpUntil([&] { return Raised("MediaPlayerEncounteredError"); }, 15000ms));
    EXPECT_EQ(Logins().size(), 1u) << "nothing raised for the destroyed object";
}

}  // namespace
