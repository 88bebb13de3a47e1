// thermokit view: films in a web browser. A small HTTP server on this machine
// serves a page (compiled into the tool) that shows the frames, colours them
// and reads temperatures itself, asking the server only for levels, tables
// and figures. Ctrl-C stops it.
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <cstdio>
#include <ctime>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Command.h"
#include "ViewFilm.h"
#include "ViewServer.h"

namespace thermokit::cli {
namespace {

bool IsLoopback(const std::string& address) {
    return address == "localhost" || address == "::1" || address == "[::1]" || address.rfind("127.", 0) == 0;
}

bool OpenViewFilms(const ViewOptions& o, std::vector<std::unique_ptr<ViewFilm>>& films) {
    for (const std::string& path : o.films) {
        films.push_back(std::make_unique<ViewFilm>());
        if (!films.back()->Open(path, o)) return false;
    }
    return true;
}

void PrintViewAddress(const std::string& listen, const ViewServer& server, size_t films) {
    if (!IsLoopback(listen))
        Error("warning: listening on " + listen + " port " + std::to_string(server.Port()) +
              ": anyone who can reach this address and has the token can read the films");
    // The address to open: a wildcard address is reached here through the loopback one.
    std::string host = listen;
    if (host == "0.0.0.0") host = "127.0.0.1";
    else if (host == "::") host = "[::1]";
    else if (host.find(':') != std::string::npos) host = "[" + host + "]";
    std::printf("thermokit view: http://%s:%d/?token=%s\n", host.c_str(), server.Port(), server.Token().c_str());
    std::printf("thermokit view: %zu film(s); Ctrl-C stops\n", films);
    std::fflush(stdout);
}

// Runs the server until it fails or a stop signal comes; the signal's number,
// or 0. The signals are blocked in every thread and taken by one waiting
// thread, which stops the server.
int ServeUntilStopped(ViewServer& server, const sigset_t& stopSignals, bool& served) {
    std::atomic<bool> done{false};
    std::atomic<int> stoppedBy{0};
    std::thread watcher([&] {
        const timespec wait{0, 200'000'000};
        while (!done) {
            // Stop is repeated until Run has returned: a signal that comes
            // before the server listens must still end it.
            if (stoppedBy) {
                server.Stop();
                nanosleep(&wait, nullptr);
                continue;
            }
            const int s = sigtimedwait(&stopSignals, nullptr, &wait);
            if (s > 0) stoppedBy = s;
        }
    });
    served = server.Run();
    done = true;
    watcher.join();
    return stoppedBy;
}

int RunView(ViewOptions o) {
    if (!CheckConversionOptions(o.conversion)) return kUsage;
    if (o.listen.size() > 2 && o.listen.front() == '[' && o.listen.back() == ']')
        o.listen = o.listen.substr(1, o.listen.size() - 2);
    std::vector<std::unique_ptr<ViewFilm>> films;
    if (!OpenViewFilms(o, films)) return kFailed;
    nlohmann::ordered_json palettes;
    if (!PalettesJson(o.paletteFile, palettes)) return kFailed;
    // Ctrl-C and the other stop signals are blocked in every thread the
    // server starts; a client going away mid-answer must not end the process.
    sigset_t stopSignals, previous;
    sigemptyset(&stopSignals);
    for (int s : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&stopSignals, s);
    pthread_sigmask(SIG_BLOCK, &stopSignals, &previous);
    ::signal(SIGPIPE, SIG_IGN);
    ViewServer server(films, std::move(palettes), ViewServer::NewToken());
    if (!server.Bind(o.listen, o.port)) {
        pthread_sigmask(SIG_SETMASK, &previous, nullptr);
        return kFailed;
    }
    PrintViewAddress(o.listen, server, films.size());
    bool served = false;
    const int stoppedBy = ServeUntilStopped(server, stopSignals, served);
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    if (stoppedBy) {
        std::printf("thermokit view: stopped\n");
        return kDone;
    }
    if (!served) {
        Error("the viewer's server stopped: it cannot accept connections on " + o.listen);
        return kFailed;
    }
    return kDone;
}

}  // namespace

void AddViewCommand(CLI::App& app) {
    auto o = std::make_shared<ViewOptions>();
    auto* sub = app.add_subcommand("view", "Look at films in a web browser (a local server and its page)");
    Input(sub->add_option("films", o->films, "Film files, one tab each"))->required();
    AddConversionOptions(sub, o->conversion);
    Input(sub->add_option("--nuc", o->nuc, "NUC table: a correction switch in the page"));
    Input(sub->add_option("--badpixels", o->badPixels, "Bad-pixel map: a correction switch in the page"));
    Input(sub->add_option("--palette-file", o->paletteFile, "Palette file with custom palettes"));
    sub->add_option("--port", o->port, "Port to listen on (default 0: any free port)")->check(CLI::Range(0, 65535));
    sub->add_option("--listen", o->listen,
                    "Address to listen on (default 127.0.0.1, this machine only; 0.0.0.0 every interface)");
    sub->footer("Example: thermokit view out/demo/films/scene.film --embedded   (then open the address it prints)");
    sub->callback([o] { SetAction([o] { return RunView(*o); }); });
}

}  // namespace thermokit::cli
