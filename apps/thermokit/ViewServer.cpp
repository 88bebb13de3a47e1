#include "ViewServer.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <bit>
#include <cctype>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <list>
#include <random>
#include <thread>

#include <httplib.h>

#include "thermokit/platform/Version.h"

namespace thermokit::cli {

// The page (HTML with its style and script), made from web/ at build time.
extern const unsigned char kViewerPage[];
extern const size_t kViewerPageSize;

namespace {

static_assert(std::endian::native == std::endian::little, "frames and tables are sent as they lie in memory");

using httplib::Request;
using httplib::Response;
using Json = nlohmann::ordered_json;

constexpr size_t kMaxTarget = 2048;  // longest request target (path and query) served
constexpr size_t kMaxParams = 16;
constexpr size_t kFrameHead = 32;

void Reply(Response& res, int status, const std::string& text) {
    res.status = status;
    res.set_content(text + "\n", "text/plain; charset=utf-8");
}

std::string Lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

bool IsIpLiteral(const std::string& name) {
    unsigned char buf[16];
    if (name.size() > 2 && name.front() == '[' && name.back() == ']')
        return ::inet_pton(AF_INET6, name.substr(1, name.size() - 2).c_str(), buf) == 1;
    return ::inet_pton(AF_INET, name.c_str(), buf) == 1;
}

// Compares in a time that does not depend on where the texts first differ.
bool SameToken(const std::string& given, const std::string& token) {
    if (given.size() != token.size()) return false;
    unsigned char diff = 0;
    for (size_t i = 0; i < token.size(); ++i) diff |= static_cast<unsigned char>(given[i] ^ token[i]);
    return diff == 0;
}

// "deflate" among the codings of Accept-Encoding, not refused by q=0.
bool AcceptsDeflate(const Request& req) {
    const std::string list = Lower(req.get_header_value("Accept-Encoding"));
    size_t start = 0;
    while (start < list.size()) {
        size_t end = list.find(',', start);
        if (end == std::string::npos) end = list.size();
        std::string item = list.substr(start, end - start);
        item.erase(std::remove(item.begin(), item.end(), ' '), item.end());
        const size_t q = item.find(";q=");
        if (item.substr(0, item.find(';')) == "deflate")
            return q == std::string::npos || std::strtod(item.c_str() + q + 3, nullptr) > 0.0;
        start = end + 1;
    }
    return false;
}

// Answers with data as it is, without copying it again (frames are megabytes).
void SetBody(Response& res, std::string&& data, const char* type) {
    auto body = std::make_shared<std::string>(std::move(data));
    res.set_content_provider(body->size(), type,
                             [body](size_t offset, size_t length, httplib::DataSink& sink) {
                                 return sink.write(body->data() + offset, length);
                             });
}

// zlib stream of in (RFC 1950, the HTTP deflate coding); false when zlib fails.
bool Deflate(const unsigned char* in, size_t size, int level, int strategy, std::string& out) {
    z_stream z{};
    if (deflateInit2(&z, level, Z_DEFLATED, 15, 8, strategy) != Z_OK) return false;
    out.resize(deflateBound(&z, static_cast<uLong>(size)));
    z.next_in = const_cast<Bytef*>(in);
    z.avail_in = static_cast<uInt>(size);
    z.next_out = reinterpret_cast<Bytef*>(out.data());
    z.avail_out = static_cast<uInt>(out.size());
    const int rc = deflate(&z, Z_FINISH);
    out.resize(z.total_out);
    deflateEnd(&z);
    return rc == Z_STREAM_END;
}

// Sends body, deflated when the client takes it and that saves an eighth or more.
void SendBinary(const Request& req, Response& res, std::string&& body, int strategy) {
    std::string packed;
    if (AcceptsDeflate(req) && Deflate(reinterpret_cast<const unsigned char*>(body.data()), body.size(), 1, strategy,
                                       packed) &&
        packed.size() * 8 <= body.size() * 7) {
        res.set_header("Content-Encoding", "deflate");
        SetBody(res, std::move(packed), "application/octet-stream");
    } else {
        SetBody(res, std::move(body), "application/octet-stream");
    }
    res.set_header("Vary", "Accept-Encoding");
}

template <class T>
void Put(std::string& s, size_t at, T v) {
    std::memcpy(s.data() + at, &v, sizeof v);
}

std::string FrameHead(const ViewFrame& f, unsigned long n, unsigned short point, unsigned short line,
                      uint8_t encoding) {
    std::string h(kFrameHead, '\0');
    std::memcpy(h.data(), "TKFR", 4);
    Put<uint8_t>(h, 4, 1);
    Put<uint8_t>(h, 5, encoding);
    Put<uint16_t>(h, 6, static_cast<uint16_t>(f.flags));
    Put<uint16_t>(h, 8, point);
    Put<uint16_t>(h, 10, line);
    Put<uint32_t>(h, 12, static_cast<uint32_t>(n));
    Put<double>(h, 16, f.time);
    Put<uint16_t>(h, 24, f.autoMin);
    Put<uint16_t>(h, 26, f.autoMax);
    Put<uint16_t>(h, 28, f.min);
    Put<uint16_t>(h, 30, f.max);
    return h;
}

// Frame n: deflated as line differences in two byte planes (they shrink far
// better than the levels themselves, with Huffman coding alone, which is
// fast) when the client asks for it (deflate=1: a page on another machine,
// where bytes cost more than the few milliseconds of packing), takes deflate
// and that saves an eighth; the plain levels otherwise.
void SendFrame(const Request& req, Response& res, const ViewFrame& f, unsigned long n, unsigned short point,
               unsigned short line, bool pack) {
    const size_t count = f.levels.size();
    res.set_header("Vary", "Accept-Encoding");
    if (pack && AcceptsDeflate(req)) {
        std::string planes = FrameHead(f, n, point, line, 1);
        planes.resize(kFrameHead + 2 * count);
        unsigned char* lo = reinterpret_cast<unsigned char*>(planes.data()) + kFrameHead;
        unsigned char* hi = lo + count;
        for (size_t y = 0, i = 0; y < line; ++y) {
            unsigned short left = 0;
            for (size_t x = 0; x < point; ++x, ++i) {
                const unsigned short d = static_cast<unsigned short>(f.levels[i] - left);
                left = f.levels[i];
                lo[i] = static_cast<unsigned char>(d & 0xff);
                hi[i] = static_cast<unsigned char>(d >> 8);
            }
        }
        std::string packed;
        if (Deflate(reinterpret_cast<const unsigned char*>(planes.data()), planes.size(), 1, Z_HUFFMAN_ONLY, packed) &&
            packed.size() * 8 <= planes.size() * 7) {
            res.set_header("Content-Encoding", "deflate");
            SetBody(res, std::move(packed), "application/octet-stream");
            return;
        }
    }
    std::string body = FrameHead(f, n, point, line, 0);
    body.append(reinterpret_cast<const char*>(f.levels.data()), 2 * count);
    SetBody(res, std::move(body), "application/octet-stream");
}

// The query of one request: only the names a request knows, each once, numbers in their bounds.
class Query {
public:
    Query(const Request& req, Response& res, std::initializer_list<const char*> names) : m_req(req), m_res(res) {
        for (const auto& [name, value] : req.params) {
            bool known = name == "token";
            for (const char* n : names) known = known || name == n;
            if (!known) Fail("unknown parameter \"" + name + "\"");
            else if (req.get_param_value_count(name) != 1) Fail("parameter \"" + name + "\" given twice");
            if (!m_ok) return;
        }
    }
    bool Ok() const { return m_ok; }

    // A whole number in [lo, hi]; required unless a default is given.
    long Number(const char* name, long lo, long hi, long fallback = -1, bool required = true) {
        if (!m_ok) return fallback;
        if (!m_req.has_param(name)) {
            if (required) Fail(std::string("parameter \"") + name + "\" missing");
            return fallback;
        }
        const std::string v = m_req.get_param_value(name);
        if (v.empty() || v.size() > 10 || v.find_first_not_of("0123456789") != std::string::npos) {
            Fail(std::string("parameter \"") + name + "\": \"" + v + "\" is not a whole number");
            return fallback;
        }
        const long n = std::stol(v);
        if (n < lo || n > hi) {
            Fail(std::string("parameter \"") + name + "\": " + v + " is not in " + std::to_string(lo) + ".." +
                 std::to_string(hi));
            return fallback;
        }
        return n;
    }
    bool Flag(const char* name) { return Number(name, 0, 1, 0, false) == 1; }
    std::string Word(const char* name, std::initializer_list<const char*> words) {
        if (!m_ok) return {};
        if (!m_req.has_param(name)) {
            Fail(std::string("parameter \"") + name + "\" missing");
            return {};
        }
        const std::string v = m_req.get_param_value(name);
        std::string known;
        for (const char* w : words) {
            if (v == w) return v;
            known += (known.empty() ? "" : " or ") + std::string(w);
        }
        Fail(std::string("parameter \"") + name + "\": \"" + v + "\" is not " + known);
        return {};
    }
    void Fail(const std::string& why) {
        if (m_ok) Reply(m_res, 400, why);
        m_ok = false;
    }

private:
    const Request& m_req;
    Response& m_res;
    bool m_ok = true;
};

// The region of a stats request: a rectangle or the ellipse inscribed in it, inside the image.
bool RegionOf(Query& q, const ViewFilm& film, CRgn& rgn, Selection& s, std::string& label) {
    const std::string shape = q.Word("shape", {"rect", "ellipse"});
    const long x = q.Number("x", 0, 65535), y = q.Number("y", 0, 65535);
    const long w = q.Number("w", 1, 65535), h = q.Number("h", 1, 65535);
    if (!q.Ok()) return false;
    if (x + w > film.Point() || y + h > film.Line()) {
        q.Fail("the " + shape + " " + std::to_string(x) + "," + std::to_string(y) + "," + std::to_string(w) + "," +
               std::to_string(h) + " goes beyond the " + std::to_string(film.Point()) + " x " +
               std::to_string(film.Line()) + " image");
        return false;
    }
    const CRect r(static_cast<int>(x), static_cast<int>(y), static_cast<int>(x + w), static_cast<int>(y + h));
    if (shape == "rect") {
        s.Rect(r, film.Point());
    } else {
        rgn.CreateEllipticRgn(r.left, r.top, r.right, r.bottom);
        s.Region(rgn, film.Point(), film.Line());
        if (s.pixels.empty()) {
            q.Fail("the ellipse holds no pixel");
            return false;
        }
    }
    label = shape + "-" + std::to_string(x) + "-" + std::to_string(y) + "-" + std::to_string(w) + "-" +
            std::to_string(h);
    return true;
}

// A file name made only of letters, digits, dots, dashes and underscores.
std::string SafeName(const std::string& name) {
    std::string s;
    for (char c : name) s += (std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '-') ? c : '_';
    return s.empty() ? std::string("film") : s;
}

// Runs whole-film work one at a time; a second request meanwhile gets 429.
class Exclusive {
public:
    explicit Exclusive(std::atomic<bool>& busy) : m_busy(busy), m_held(!busy.exchange(true)) {}
    ~Exclusive() {
        if (m_held) m_busy = false;
    }
    bool Held() const { return m_held; }

private:
    std::atomic<bool>& m_busy;
    bool m_held;
};

// cpp-httplib listens with a backlog of 5 connections: a burst of clients
// overflows it, and the connections the system then drops wait for its
// retries, seconds each. The backlog of a listening socket can be raised
// by listening again.
class Server : public httplib::Server {
public:
    bool RaiseBacklog(int connections) { return ::listen(svr_sock_, connections) == 0; }
};

// The worker threads of the server, with a bounded queue of accepted
// connections: when it is full the accepting thread waits, and further
// clients wait in the system's listen queue instead of in memory.
class BoundedPool : public httplib::TaskQueue {
public:
    BoundedPool(size_t threads, size_t capacity) : m_capacity(capacity) {
        for (size_t i = 0; i < threads; ++i) m_threads.emplace_back([this] { Work(); });
    }
    void enqueue(std::function<void()> fn) override {
        std::unique_lock<std::mutex> lock(m_lock);
        m_notFull.wait(lock, [this] { return m_jobs.size() < m_capacity || m_shutdown; });
        m_jobs.push_back(std::move(fn));
        m_notEmpty.notify_one();
    }
    void shutdown() override {
        {
            std::lock_guard<std::mutex> lock(m_lock);
            m_shutdown = true;
        }
        m_notEmpty.notify_all();
        m_notFull.notify_all();
        for (auto& t : m_threads) t.join();
        m_threads.clear();
    }

private:
    void Work() {
        for (;;) {
            std::function<void()> job;
            {
                std::unique_lock<std::mutex> lock(m_lock);
                m_notEmpty.wait(lock, [this] { return !m_jobs.empty() || m_shutdown; });
                if (m_jobs.empty()) return;
                job = std::move(m_jobs.front());
                m_jobs.pop_front();
                m_notFull.notify_one();
            }
            job();
        }
    }
    size_t m_capacity;
    std::vector<std::thread> m_threads;
    std::list<std::function<void()>> m_jobs;
    std::mutex m_lock;
    std::condition_variable m_notEmpty, m_notFull;
    bool m_shutdown = false;
};

}  // namespace

ViewServer::ViewServer(std::vector<std::unique_ptr<ViewFilm>>& films, nlohmann::ordered_json palettes,
                       std::string token)
    : m_films(films),
      m_palettes(std::move(palettes)),
      m_token(std::move(token)),
      m_page(reinterpret_cast<const char*>(kViewerPage), kViewerPageSize),
      m_server(std::make_unique<Server>()) {
    m_server->new_task_queue = [] { return new BoundedPool(16, 256); };
    m_server->set_tcp_nodelay(true);
    m_server->set_keep_alive_max_count(1000);
    m_server->set_keep_alive_timeout(2);
    m_server->set_read_timeout(5);
    m_server->set_write_timeout(10);
    m_server->set_payload_max_length(4096);
    m_server->set_default_headers({{"X-Content-Type-Options", "nosniff"},
                                   {"Referrer-Policy", "no-referrer"},
                                   {"X-Frame-Options", "DENY"},
                                   {"Cache-Control", "no-store"}});
    m_server->set_pre_routing_handler([this](const Request& req, Response& res) {
        return Screen(req, res) == Check::kPassed ? httplib::Server::HandlerResponse::Unhandled
                                                  : httplib::Server::HandlerResponse::Handled;
    });
    m_server->set_error_handler([](const Request&, Response& res) {
        if (!res.body.empty()) return;
        if (res.status == 404) Reply(res, 404, "not found (films are served by their number only)");
        else Reply(res, res.status, "malformed or oversized request");
    });
    m_server->set_exception_handler([](const Request&, Response& res, std::exception_ptr e) {
        std::string what = "unknown error";
        try {
            if (e) std::rethrow_exception(e);
        } catch (const std::exception& x) {
            what = x.what();
        } catch (...) {
        }
        Reply(res, 500, "internal error: " + what);
    });
    Routes();
}

ViewServer::~ViewServer() = default;

std::string ViewServer::NewToken() {
    std::random_device source;
    std::string token;
    char hex[9];
    for (int i = 0; i < 4; ++i) {
        std::snprintf(hex, sizeof hex, "%08x", static_cast<unsigned>(source()));
        token += hex;
    }
    return token;
}

bool ViewServer::Bind(const std::string& address, int port) {
    if (port == 0) {
        m_port = m_server->bind_to_any_port(address);
        if (m_port <= 0) {
            Error("--listen " + address + ": cannot listen on that address (" + std::strerror(errno) + ")");
            return false;
        }
    } else if (!m_server->bind_to_port(address, port)) {
        Error("--port " + std::to_string(port) + ": cannot listen on " + address + ":" + std::to_string(port) +
              " (in use, or not an address of this machine)");
        return false;
    } else {
        m_port = port;
    }
    static_cast<Server&>(*m_server).RaiseBacklog(256);
    m_hosts = {"127.0.0.1", "localhost", "[::1]"};
    const std::string a = Lower(address);
    if (a == "0.0.0.0" || a == "::" || a == "[::]") {
        m_anyAddress = true;
        char name[256] = {};
        if (::gethostname(name, sizeof name - 1) == 0 && name[0]) m_hosts.insert(Lower(name));
    } else {
        unsigned char buf[16];
        m_hosts.insert(::inet_pton(AF_INET6, a.c_str(), buf) == 1 ? "[" + a + "]" : a);
    }
    return true;
}

bool ViewServer::Run() { return m_server->listen_after_bind(); }

void ViewServer::Stop() { m_server->stop(); }

bool ViewServer::HostAllowed(const std::string& header) const {
    const std::string host = Lower(header);
    std::string name = host, port;
    const size_t close = host.rfind(']');
    const size_t colon = host.rfind(':');
    if (colon != std::string::npos && (close == std::string::npos || colon > close)) {
        name = host.substr(0, colon);
        port = host.substr(colon + 1);
    }
    if (port.empty() ? m_port != 80 : port != std::to_string(m_port)) return false;
    return m_hosts.count(name) > 0 || (m_anyAddress && IsIpLiteral(name));
}

ViewServer::Check ViewServer::Screen(const Request& req, Response& res) {
    auto refuse = [&](int status, const std::string& why) {
        Reply(res, status, why);
        return Check::kRefused;
    };
    // The Host first: a page of another site reaching this port through a
    // name of its own (DNS rebinding) names its own host here.
    if (req.get_header_value_count("Host") != 1 || !HostAllowed(req.get_header_value("Host")))
        return refuse(403, "the request's Host is not an address of this viewer");
    std::string given = req.get_header_value("X-Thermokit-Token");
    if (given.empty() && req.get_param_value_count("token") == 1) given = req.get_param_value("token");
    if (!SameToken(given, m_token))
        return refuse(403, std::string(given.empty() ? "no token" : "wrong token") +
                               ": open the address that thermokit view printed");
    if (req.method != "GET" && req.method != "HEAD") {
        res.set_header("Allow", "GET, HEAD");
        return refuse(405, "the viewer is read-only: GET and HEAD only");
    }
    if (req.target.size() > kMaxTarget) return refuse(414, "request target longer than 2048 characters");
    if (req.params.size() > kMaxParams) return refuse(400, "too many parameters");
    const std::string length = req.get_header_value("Content-Length");
    if ((!length.empty() && length.find_first_not_of('0') != std::string::npos) || req.has_header("Transfer-Encoding"))
        return refuse(413, "requests carry no body");
    return Check::kPassed;
}

bool ViewServer::TakeFrame(Response& res) {
    std::lock_guard<std::mutex> hold(m_rateLock);
    const auto now = std::chrono::steady_clock::now();
    m_tokens = std::min(kFrameBurst,
                        m_tokens + std::chrono::duration<double>(now - m_last).count() * kFramesPerSecond);
    m_last = now;
    if (m_tokens >= 1.0) {
        m_tokens -= 1.0;
        return true;
    }
    res.set_header("Retry-After", "1");
    Reply(res, 429, "more than " + std::to_string(static_cast<int>(kFramesPerSecond)) + " frames a second asked for");
    return false;
}

ViewFilm* ViewServer::FilmOf(const Request& req, Response& res) {
    const std::string text = req.matches[1];
    const size_t index = text.size() <= 6 ? std::stoul(text) : m_films.size();
    if (index >= m_films.size()) {
        Reply(res, 404, "no film " + text + " (films 0.." + std::to_string(m_films.size() - 1) + ")");
        return nullptr;
    }
    return m_films[index].get();
}

namespace {

// The frame number of a path, below count; false (404) otherwise.
bool FrameOf(const Request& req, Response& res, const ViewFilm& film, unsigned long& n) {
    const std::string text = req.matches[2];
    n = text.size() <= 10 ? std::stoul(text) : film.Frames();
    if (n < film.Frames()) return true;
    Reply(res, 404, "no frame " + text + " (the film holds " + std::to_string(film.Frames()) + ")");
    return false;
}

}  // namespace

void ViewServer::ServePage(const Request& req, Response& res) {
    if (!Query(req, res, {}).Ok()) return;
    res.set_header("Content-Security-Policy",
                   "default-src 'none'; script-src 'unsafe-inline'; style-src 'unsafe-inline'; "
                   "img-src data: blob:; connect-src 'self'; form-action 'none'; frame-ancestors 'none'");
    res.set_content(m_page, "text/html; charset=utf-8");
}

void ViewServer::ServeSession(const Request& req, Response& res) {
    if (!Query(req, res, {}).Ok()) return;
    Json j;
    j["version"] = GetVersion();
    j["frames_per_second"] = kFramesPerSecond;
    Json films = Json::array();
    for (size_t i = 0; i < m_films.size(); ++i) films.push_back(m_films[i]->Describe(static_cast<int>(i)));
    j["films"] = films;
    j["palettes"] = m_palettes;
    res.set_content(j.dump(), "application/json");
}

// The level table of the film's calibration. Settings that change the
// conversion (object parameters) will come as parameters of this request.
void ViewServer::ServeTable(const Request& req, Response& res) {
    ViewFilm* film = FilmOf(req, res);
    if (!film || !Query(req, res, {}).Ok()) return;
    if (!film->Calibrated())
        return Reply(res, 404, "film " + std::string(req.matches[1]) +
                                   " has no calibration (start the viewer with --calib FILE or --embedded)");
    std::vector<float> values(static_cast<size_t>(film->MaxLevel()) + 1);
    for (size_t level = 0; level < values.size(); ++level)
        values[level] = film->Value(static_cast<unsigned short>(level));
    SendBinary(req, res, std::string(reinterpret_cast<const char*>(values.data()), values.size() * 4),
               Z_DEFAULT_STRATEGY);
}

void ViewServer::ServeFrame(const Request& req, Response& res) {
    ViewFilm* film = FilmOf(req, res);
    unsigned long n = 0;
    if (!film || !FrameOf(req, res, *film, n)) return;
    Query q(req, res, {"nuc", "bad", "deflate"});
    const bool nuc = q.Flag("nuc"), bad = q.Flag("bad"), pack = q.Flag("deflate");
    if (!q.Ok()) return;
    if (!TakeFrame(res)) return;
    ViewFrame f;
    if (!film->Read(n, nuc, bad, f)) return Reply(res, 500, "frame " + std::to_string(n) + " cannot be read");
    SendFrame(req, res, f, n, film->Point(), film->Line(), pack);
}

void ViewServer::ServeImageHeader(const Request& req, Response& res) {
    ViewFilm* film = FilmOf(req, res);
    unsigned long n = 0;
    if (!film || !FrameOf(req, res, *film, n) || !Query(req, res, {}).Ok() || !TakeFrame(res)) return;
    Json j;
    if (!film->ImageHeader(n, j)) return Reply(res, 500, "frame " + std::to_string(n) + " cannot be read");
    res.set_content(j.dump(), "application/json");
}

void ViewServer::ServeStats(const Request& req, Response& res) {
    ViewFilm* film = FilmOf(req, res);
    if (!film) return;
    Query q(req, res, {"frame", "shape", "x", "y", "w", "h", "nuc", "bad"});
    const long n = q.Number("frame", 0, static_cast<long>(film->Frames()) - 1);
    const bool nuc = q.Flag("nuc"), bad = q.Flag("bad");
    CRgn rgn;
    Selection sel;
    std::string label;
    if (!q.Ok() || !RegionOf(q, *film, rgn, sel, label) || !TakeFrame(res)) return;
    Json j;
    if (!film->Measure(static_cast<unsigned long>(n), nuc, bad, sel, j))
        return Reply(res, 500, "frame " + std::to_string(n) + " cannot be read");
    res.set_content(j.dump(), "application/json");
}

void ViewServer::ServeStatsCsv(const Request& req, Response& res) {
    ViewFilm* film = FilmOf(req, res);
    if (!film) return;
    Query q(req, res, {"shape", "x", "y", "w", "h", "nuc", "bad"});
    const bool nuc = q.Flag("nuc"), bad = q.Flag("bad");
    CRgn rgn;
    Selection sel;
    std::string label;
    if (!q.Ok() || !RegionOf(q, *film, rgn, sel, label)) return;
    Exclusive one(m_busy);
    if (!one.Held()) return Reply(res, 429, "another whole-film computation is running");
    std::string text = film->CsvHead();
    if (!film->MeasureCsv(0, film->Frames() - 1, nuc, bad, sel, text))
        return Reply(res, 500, "a frame of the film cannot be read");
    std::string name = film->Name();
    const size_t dot = name.rfind('.');
    if (dot != std::string::npos && dot > 0) name.resize(dot);
    res.set_header("Content-Disposition", "attachment; filename=\"" + SafeName(name + "-" + label) + ".csv\"");
    res.set_content(text, "text/csv; charset=utf-8");
}

void ViewServer::ServeRange(const Request& req, Response& res) {
    ViewFilm* film = FilmOf(req, res);
    if (!film) return;
    Query q(req, res, {"nuc", "bad"});
    const bool nuc = q.Flag("nuc"), bad = q.Flag("bad");
    if (!q.Ok()) return;
    Exclusive one(m_busy);
    if (!one.Held()) return Reply(res, 429, "another whole-film computation is running");
    unsigned short min = 0, max = 0;
    if (!film->FilmRange(nuc, bad, min, max)) return Reply(res, 500, "a frame of the film cannot be read");
    res.set_content(Json{{"min", min}, {"max", max}}.dump(), "application/json");
}

void ViewServer::Routes() {
    httplib::Server& s = *m_server;
    s.Get("/", [this](const Request& req, Response& res) { ServePage(req, res); });
    s.Get("/api/session", [this](const Request& req, Response& res) { ServeSession(req, res); });
    s.Get(R"(/api/film/(\d+)/table)", [this](const Request& req, Response& res) { ServeTable(req, res); });
    s.Get(R"(/api/film/(\d+)/frame/(\d+))", [this](const Request& req, Response& res) { ServeFrame(req, res); });
    s.Get(R"(/api/film/(\d+)/image-header/(\d+))", [this](const Request& req, Response& res) { ServeImageHeader(req, res); });
    s.Get(R"(/api/film/(\d+)/stats)", [this](const Request& req, Response& res) { ServeStats(req, res); });
    s.Get(R"(/api/film/(\d+)/stats\.csv)", [this](const Request& req, Response& res) { ServeStatsCsv(req, res); });
    s.Get(R"(/api/film/(\d+)/range)", [this](const Request& req, Response& res) { ServeRange(req, res); });
}

}  // namespace thermokit::cli
