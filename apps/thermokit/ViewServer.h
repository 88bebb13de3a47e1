#pragma once
// The viewer's HTTP server: serves the page and, to holders of the session's
// token only, the films it was given, by index. Read-only; every request is
// checked before it reaches a film (Host, token, method, size, parameters).
//
// Requests (GET; the token in the X-Thermokit-Token header or a token query parameter):
//   /                                   the page
//   /api/session                        the films (header fields, size, calibration, corrections) and palettes
//   /api/film/N/table                   the level table: one float32 per level 0..maxLevel, NaN where a level has no value
//   /api/film/N/frame/K?nuc=&bad=&deflate=   frame K: a 32-byte head and the levels (the frame layout below)
//   /api/film/N/image-header/K          image K's header fields, as info --frame shows them
//   /api/film/N/stats?frame=&shape=&x=&y=&w=&h=&nuc=&bad=   a region's figures and histogram
//   /api/film/N/stats.csv?shape=&x=&y=&w=&h=&nuc=&bad=      the region over every frame, as stats --csv
//   /api/film/N/range?nuc=&bad=         the display range over the film
//
// Frame layout, little-endian: "TKFR", version 1 (u8), encoding (u8), flags
// (u16: 1 NUC applied, 2 bad pixels replaced), point, line (u16), frame
// number (u32), time (f64, seconds since midnight), automatic range min and
// max, extremes min and max (u16 each); then point x line levels. Encoding 0:
// the levels as they are. Encoding 1 (asked for with deflate=1, sent inside a
// deflate Content-Encoding when that saves an eighth or more): each line as
// differences from the pixel on its left (modulo 65536, the first from 0), the
// low bytes of all of them, then the high bytes.
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "ViewFilm.h"

namespace httplib {
class Server;
struct Request;
struct Response;
}  // namespace httplib

namespace thermokit::cli {

// Frames read per second (for frames, image headers and region figures),
// sustained and in one burst: what playback at a camera's rate with its
// figures and a few clients need, and a bound on the work anyone can ask.
constexpr double kFramesPerSecond = 240.0;
constexpr double kFrameBurst = 240.0;

class ViewServer {
public:
    ViewServer(std::vector<std::unique_ptr<ViewFilm>>& films, nlohmann::ordered_json palettes, std::string token);
    ~ViewServer();
    ViewServer(const ViewServer&) = delete;
    ViewServer& operator=(const ViewServer&) = delete;

    // Binds to address:port (port 0: any free one); false with a message.
    bool Bind(const std::string& address, int port);
    int Port() const { return m_port; }
    const std::string& Token() const { return m_token; }
    // Serves until Stop (from any thread).
    bool Run();
    void Stop();

    // 128 random bits as 32 hexadecimal digits.
    static std::string NewToken();

private:
    enum class Check { kPassed, kRefused };
    Check Screen(const httplib::Request& req, httplib::Response& res);
    bool HostAllowed(const std::string& host) const;
    // One frame read from the budget; false with a 429 answer when it is spent.
    bool TakeFrame(httplib::Response& res);
    ViewFilm* FilmOf(const httplib::Request& req, httplib::Response& res);
    void Routes();
    // The answers, one a route.
    void ServePage(const httplib::Request& req, httplib::Response& res);
    void ServeSession(const httplib::Request& req, httplib::Response& res);
    void ServeTable(const httplib::Request& req, httplib::Response& res);
    void ServeFrame(const httplib::Request& req, httplib::Response& res);
    void ServeImageHeader(const httplib::Request& req, httplib::Response& res);
    void ServeStats(const httplib::Request& req, httplib::Response& res);
    void ServeStatsCsv(const httplib::Request& req, httplib::Response& res);
    void ServeRange(const httplib::Request& req, httplib::Response& res);

    std::vector<std::unique_ptr<ViewFilm>>& m_films;
    nlohmann::ordered_json m_palettes;
    std::string m_token;
    std::string m_page;
    std::unique_ptr<httplib::Server> m_server;
    int m_port = 0;
    std::set<std::string> m_hosts;  // allowed Host names (lower case, no port)
    bool m_anyAddress = false;      // listening on every interface: any IP address is a valid Host too

    std::mutex m_rateLock;
    double m_tokens = kFrameBurst;
    std::chrono::steady_clock::time_point m_last = std::chrono::steady_clock::now();
    std::atomic<bool> m_busy{false};  // a whole-film computation (CSV, range) is running
};

}  // namespace thermokit::cli
