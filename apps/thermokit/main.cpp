// thermokit: the command-line tool of the toolkit.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <vector>

#include "Command.h"
#include "System.h"
#include "thermokit/platform/Messages.h"
#include "thermokit/platform/Parallel.h"
#include "thermokit/platform/Utf8.h"
#include "thermokit/platform/Utf8Path.h"
#include "thermokit/platform/Version.h"

namespace thermokit::cli {

namespace {

// The commands in the order of the help.
constexpr void (*kCommands[])(CLI::App&) = {
    AddInfoCommand,     AddStatsCommand,  AddTemperatureCommand, AddRenderCommand,  AddAnimateCommand,
    AddExportCommand,   AddEditCommand,   AddCorrectCommand,     AddNucCommand,     AddBadPixelsCommand,
    AddLockinCommand,   AddCalibCommand,  AddPlanckCommand,      AddPaletteCommand, AddRecordCommand,
    AddCamerasCommand,  AddSimulateCommand,
#ifdef THERMOKIT_HAVE_VIEW
    AddViewCommand,
#endif
    AddRegistryCommand, AddDemoCommand,   AddAboutCommand,
};

Action& PendingAction() {
    static Action action;
    return action;
}
std::vector<CLI::Option*>& Inputs() {
    static std::vector<CLI::Option*> options;
    return options;
}
std::vector<CLI::Option*>& Outputs() {
    static std::vector<CLI::Option*> options;
    return options;
}
bool g_quiet = false;

// "thermokit: TEXT" on standard error as one line of UTF-8: a temporary
// output name (".NAME.part-PID-N", a folder's ".NAME.part-PID") told by its
// final name, control characters escaped.
std::string FinalNames(const std::string& text) {
    const auto space = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
    const auto digits = [&text](size_t at) {
        while (at < text.size() && std::isdigit(static_cast<unsigned char>(text[at]))) ++at;
        return at;
    };
    // At i, a word ".NAME.part-D[-D]": the end of what it holds, NAME in name; 0 when there is none.
    const auto temporary = [&](size_t i, std::string& name) -> size_t {
        size_t end = i + 1;  // the word runs to the next '/' or white space
        while (end < text.size() && text[end] != '/' && !space(text[end])) ++end;
        const std::string word = text.substr(i + 1, end - i - 1);
        // The last ".part-" of the word that digits follow, after a name of a character or more.
        for (size_t tag = word.rfind(".part-"); tag != std::string::npos && tag > 0; tag = word.rfind(".part-", tag - 1)) {
            const size_t from = i + 1 + tag + 6;
            size_t stop = digits(from);
            if (stop == from) continue;
            if (stop < text.size() && text[stop] == '-' && digits(stop + 1) > stop + 1) stop = digits(stop + 1);
            name = word.substr(0, tag);
            return stop;
        }
        return 0;
    };
    std::string out, name;
    for (size_t i = 0; i < text.size();) {
        const bool starts = text[i] == '.' && (i == 0 || text[i - 1] == '/' || space(text[i - 1]));
        const size_t stop = starts ? temporary(i, name) : 0;
        if (stop) {
            out += name;
            i = stop;
        } else {
            out += text[i++];
        }
    }
    return out;
}

void PrintLine(const std::string& text) {
    std::fprintf(stderr, "thermokit: %s\n", EscapeControls(NameToUtf8(FinalNames(text))).c_str());
}

// The library shows its message-box texts through Messages; the tool reports
// each failure itself in one line. Error texts are held back: a failure the
// command reports drops them, and whatever is left when the command ends is
// printed then (the last one only when the command failed: the texts before
// it told the same failure in other words). Warnings go out at once.
class HeldMessages {
public:
    void Show(const Message& m) {
        if (m.icon != MB_ICONERROR) {
            Print(m);
            return;
        }
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_held.size() >= kMax) m_held.erase(m_held.begin());
        m_held.push_back(m);
    }
    void Drop() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_held.clear();
    }
    void Flush(bool failed) {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (failed && m_held.size() > 1) m_held.erase(m_held.begin(), m_held.end() - 1);
        for (const Message& m : m_held) Print(m);
        m_held.clear();
    }

private:
    static void Print(const Message& m) {
        PrintLine(m.caption == "thermokit" ? m.text : m.caption + ": " + m.text);
    }
    static constexpr size_t kMax = 64;
    std::mutex m_mutex;
    std::vector<Message> m_held;
};
HeldMessages g_held;

// Levenshtein distance, for "did you mean".
size_t Distance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t up = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
            diagonal = up;
        }
    }
    return row[b.size()];
}

// The nearest of names to word, when near enough to be a slip.
std::string Nearest(const std::string& word, const std::vector<std::string>& names) {
    std::string best;
    size_t bestDistance = std::max<size_t>(2, word.size() / 3) + 1;
    for (const std::string& n : names) {
        const size_t d = n.rfind(word, 0) == 0 ? 1 : Distance(word, n);
        if (d < bestDistance) {
            best = n;
            bestDistance = d;
        }
    }
    return best;
}

std::string Suggestion(const std::string& word, const std::vector<std::string>& names) {
    const std::string near = Nearest(word, names);
    return near.empty() ? std::string() : " (did you mean `" + near + "`?)";
}

// The deepest sub-command the command line chose.
CLI::App* Chosen(CLI::App& app) {
    CLI::App* at = &app;
    for (;;) {
        const auto subs = at->get_subcommands();
        if (subs.empty()) return at;
        at = subs.front();
    }
}

std::string CommandPath(CLI::App* sub) {
    std::string path;
    for (; sub && sub->get_parent(); sub = sub->get_parent()) path = sub->get_name() + (path.empty() ? "" : " ") + path;
    return path;
}

// One line for a parse error, with the nearest name for an unknown one.
std::string UsageText(CLI::App& app, const CLI::ParseError& e) {
    CLI::App* sub = Chosen(app);
    std::string text = e.what();
    std::replace(text.begin(), text.end(), '\n', ' ');
    if (dynamic_cast<const CLI::ExtrasError*>(&e)) {
        // An unknown option is the likelier slip than a stray value: it is named first.
        const std::vector<std::string> extra = app.remaining(true);
        auto at = std::find_if(extra.begin(), extra.end(), [](const std::string& w) { return w.rfind("-", 0) == 0; });
        if (at == extra.end()) at = extra.begin();
        if (at != extra.end()) {
            const std::string word = at->substr(0, at->find('='));
            std::vector<std::string> names;
            if (word.rfind("-", 0) == 0) {
                for (const CLI::Option* o : sub->get_options())
                    for (const std::string& n : o->get_lnames()) names.push_back("--" + n);
                text = "unknown option " + word + Suggestion(word, names);
            } else {
                for (const CLI::App* s : sub->get_subcommands({})) names.push_back(s->get_name());
                text = (names.empty() ? "unexpected argument " : "unknown command ") + word + Suggestion(word, names);
            }
        }
    }
    const std::string path = CommandPath(sub);
    return (path.empty() ? "" : path + ": ") + text;
}

// The files the chosen command reads and writes, checked before it runs.
int CheckFiles() {
    std::vector<std::string> inputs;
    for (CLI::Option* o : Inputs())
        for (const std::string& path : o->results())
            if (!path.empty()) {
                const std::string why = InputProblem(path);
                if (!why.empty()) {
                    FileError(path, why);
                    return kFailed;
                }
                inputs.push_back(path);
            }
    for (CLI::Option* o : Outputs())
        for (const std::string& out : o->results())
            for (const std::string& in : inputs)
                if (out != "-" && SameFile(out, in)) {
                    FileError(out, "is also an input (" + in + "); write the output to another file");
                    return kUsage;
                }
    return kDone;
}

// "thermokit help CMD..." is "thermokit CMD... --help".
std::vector<std::string> Arguments(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    if (!args.empty() && args.front() == "help") {
        args.erase(args.begin());
        args.push_back("--help");
    }
    return args;
}

}  // namespace

bool Quiet() { return g_quiet; }
void SetQuiet(bool quiet) { g_quiet = quiet; }

void Note(const char* format, ...) {
    if (g_quiet) return;
    va_list args;
    va_start(args, format);
    std::vprintf(format, args);
    va_end(args);
}

void SetAction(Action action) { PendingAction() = std::move(action); }

CLI::Option* Input(CLI::Option* option) {
    Inputs().push_back(option);
    return option;
}

CLI::Option* Output(CLI::Option* option) {
    Outputs().push_back(option);
    return option;
}

CLI::Option* Output(CLI::Option* option, std::function<std::string()> extension) {
    const auto inFolder = [extension](std::string& out) {
        const bool named = !out.empty() && std::string(kPathSeparators).find(out.back()) != std::string::npos;
        std::error_code ec;
        if (out == "-" || !(named || std::filesystem::is_directory(PathFromUtf8(out), ec))) return std::string();
        // Options take their values in the order they are declared: an input
        // declared before the output is known here.
        for (CLI::Option* in : Inputs())
            if (!in->results().empty() && !in->results().front().empty()) {
                const std::string stem = Utf8FromPath(PathFromUtf8(in->results().front()).stem());
                out += (named ? "" : "/") + stem + extension();
                break;
            }
        return std::string();
    };
    option->transform(CLI::Validator(inFolder, ""));
    return Output(option);
}

namespace {
CLI::Validator NumberAtLeast(bool zeroAllowed) {
    return CLI::Validator(
        [zeroAllowed](const std::string& text) {
            char* end = nullptr;
            const double v = std::strtod(text.c_str(), &end);
            if (end == text.c_str() || *end != '\0' || !std::isfinite(v)) return text + " is not a number";
            if (zeroAllowed ? v < 0.0 : v <= 0.0)
                return std::string(zeroAllowed ? "expected 0 or a number above it, not " : "expected a number above 0, not ") + text;
            return std::string();
        },
        zeroAllowed ? "NUMBER>=0" : "NUMBER>0");
}
}  // namespace

CLI::Validator Positive() { return NumberAtLeast(false); }
CLI::Validator NonNegative() { return NumberAtLeast(true); }

void Error(const std::string& text) {
    g_held.Drop();
    PrintLine(text);
}

void Warning(const std::string& text) { PrintLine("warning: " + text); }

std::string Number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

std::string FileErrorText(const std::string& path, const std::string& what) { return "file " + path + ": " + what; }

void FileError(const std::string& path, const std::string& what) { Error(FileErrorText(path, what)); }

}  // namespace thermokit::cli

int main(int argc, char** argv) {
    using namespace thermokit::cli;
    PrepareStandardStreams();
    CLI::App app{"thermokit: thermal-infrared camera toolkit (frames, films, NUC, bad pixels, calibration, display)",
                 "thermokit"};
    app.set_version_flag("--version", std::string("thermokit ") + thermokit::GetVersion());
    app.require_subcommand(0, 1);
    // Given before or after the sub-command: options of the tool fall through to it.
    app.fallthrough();
    bool quiet = false;
    app.add_flag("-q,--quiet", quiet, "No progress bars and no summary lines");
    int threads = 0;
    app.add_option("--threads", threads,
                   "Threads for work over whole films (default: THERMOKIT_THREADS, else every core)")
        ->check(CLI::Range(1, 4096));
    app.footer("Run `thermokit help COMMAND` (or `thermokit COMMAND --help`) for a command's options.");
    for (auto add : kCommands) add(app);

    std::vector<std::string> args = Arguments(argc, argv);
    std::reverse(args.begin(), args.end());
    try {
        app.parse(args);
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() == 0) return app.exit(e);
        Error(UsageText(app, e));
        return kUsage;
    }
    SetQuiet(quiet);
    thermokit::SetThreadCount(threads);
    if (!PendingAction()) {
        std::cout << app.help();
        return kDone;
    }
    thermokit::Messages::SetSink([](const thermokit::Message& m) { g_held.Show(m); });
    int status = CheckFiles();
    if (status == kDone) {
        try {
            status = PendingAction()();
        } catch (const std::exception& e) {
            Error(e.what());
            status = kFailed;
        }
    }
    g_held.Flush(status != kDone);
    thermokit::Messages::SetSink(nullptr);
    return status;
}
