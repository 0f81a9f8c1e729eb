// velt-updater: replaces a portable bundle of VELT | Compressor with the one in a downloaded
// package, after the running program has ended, and starts it again.
//
//   velt-updater --pid PID --target BUNDLE --dmg PACKAGE --version VERSION [--relaunch]
//                [--wait-seconds N]
//
// The package must carry a signature by the release key in PACKAGE.sig beside it (base64, as
// the manifest's "signature"; the program writes it there before the hand-over). Only then is
// it unpacked into a staging folder beside the bundle (same file system), its program must
// answer --version, and the two folders are exchanged in one rename. The old
// bundle is kept until the new program has started and is put back on any failure, so the
// installed program is never left half-replaced. One line per step goes to updater.log.
//
// Exit codes: 0 installed; 2 bad arguments; 3 the process did not end in time; 4 the target
// is not a bundle; 5 the package was refused; 6 the new program does not start; 7 the folders
// could not be exchanged; 8 the new program could not be launched (old bundle restored).
#include "bundle_archive.h"
#include "helper_steps.h"
#include "model/atomic_file.h"
#include "update/package_signature.h"

#include <stdlib.h>
#include <QFile>
#include <charconv>
#include <optional>
#include <string>
#include <system_error>

namespace fs = std::filesystem;
using namespace velt::updater;
using velt::SignatureCheck;

namespace {

struct Arguments {
    pid_t pid = 0;
    fs::path target;
    fs::path package;
    std::string version;
    bool relaunch = false;
    std::chrono::seconds wait{120};
};

std::optional<long> number(const std::string& text) {
    long value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value <= 0) return {};
    return value;
}

std::optional<Arguments> parse(int argc, char** argv) {
    Arguments arguments;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--relaunch") {
            arguments.relaunch = true;
            continue;
        }
        if (i + 1 >= argc) return std::nullopt;
        const std::string value = argv[++i];
        if (option == "--pid") {
            const auto pid = number(value);
            if (!pid) return std::nullopt;
            arguments.pid = static_cast<pid_t>(*pid);
        } else if (option == "--target") {
            arguments.target = fs::path(value).lexically_normal();
        } else if (option == "--dmg") {
            arguments.package = value;
        } else if (option == "--version") {
            arguments.version = value;
        } else if (option == "--wait-seconds") {
            const auto seconds = number(value);
            if (!seconds) return std::nullopt;
            arguments.wait = std::chrono::seconds(*seconds);
        } else {
            return std::nullopt;
        }
    }
    if (arguments.pid == 0 || arguments.target.empty() || arguments.package.empty() ||
        arguments.version.empty())
        return std::nullopt;
    if (arguments.target.filename().empty()) arguments.target = arguments.target.parent_path();
    return arguments;
}

void removeQuietly(const fs::path& path) {
    std::error_code ignored;
    fs::remove_all(path, ignored);
}

// The one folder of the unpacked package that is a bundle.
std::optional<fs::path> stagedBundle(const fs::path& staging) {
    std::error_code error;
    std::optional<fs::path> found;
    for (const auto& entry : fs::directory_iterator(staging, error)) {
        if (found || !entry.is_directory()) return std::nullopt;
        found = entry.path();
    }
    if (!found || !fs::is_regular_file(*found / "VELT-BUNDLE")) return std::nullopt;
    return found;
}

// Ends a failed hand-over: the bundle at `target` is the old one; start it again if asked.
int giveUp(const Arguments& arguments, const fs::path& staging, int code, const std::string& why) {
    logLine(why);
    removeQuietly(staging);
    if (arguments.relaunch) {
        const pid_t pid = startProgram(arguments.target);
        logLine(pid > 0 ? "Relaunched the previous version pid " + std::to_string(pid)
                        : "Could not relaunch the previous version");
    }
    return code;
}

int install(const Arguments& arguments) {
    logLine("Update to " + arguments.version + " of " + arguments.target.string() +
            " waiting for pid " + std::to_string(arguments.pid));
    if (!waitForProcessEnd(arguments.pid, arguments.wait)) {
        logLine("Process " + std::to_string(arguments.pid) + " did not end; nothing was changed");
        return 3;
    }
    if (!fs::is_regular_file(arguments.target / "VELT-BUNDLE")) {
        logLine("Not a bundle: " + arguments.target.string() + "; nothing was changed");
        return 4;
    }
    const QString package = QFile::decodeName(arguments.package.c_str());
    const QString signature = velt::signatureFileOf(package);
    const SignatureCheck check = velt::verifyPackageSignature(
        package, velt::readWholeFile(signature, 4096).value_or(QByteArray()),
        velt::builtInUpdateKey());
    if (check != SignatureCheck::verified)
        return giveUp(arguments, {}, 5,
                      "Package refused: " + describe(check).toStdString() +
                          " Signature file: " + QFile::encodeName(signature).toStdString());
    std::string pattern = (arguments.target.parent_path() / ".velt-update-XXXXXX").string();
    if (!::mkdtemp(pattern.data()))
        return giveUp(arguments, {}, 5, "Cannot create a staging folder beside the bundle");
    const fs::path staging = pattern;
    if (const std::string why = extractPackage(arguments.package, staging); !why.empty())
        return giveUp(arguments, staging, 5, "Package refused: " + why);
    const auto staged = stagedBundle(staging);
    if (!staged)
        return giveUp(arguments, staging, 5, "Package refused: it holds no single bundle folder");
    const std::string reported = reportedVersion(*staged);
    if (reported.empty())
        return giveUp(arguments, staging, 6, "The new program does not start; nothing changed");
    logLine("Staged program reports " + reported);
    if (!exchangeFolders(*staged, arguments.target))
        return giveUp(arguments, staging, 7, "Cannot exchange the bundle folders");
    logLine("Bundle exchanged");
    if (arguments.relaunch) {
        const pid_t pid = startProgram(arguments.target);
        if (pid <= 0) {
            if (!exchangeFolders(*staged, arguments.target))
                return giveUp(arguments, {}, 8,
                              "Cannot start the new program nor restore the "
                              "old bundle; it is at " +
                                  staged->string());
            return giveUp(arguments, staging, 8,
                          "Cannot start the new program; old bundle "
                          "restored");
        }
        logLine("Relaunched pid " + std::to_string(pid));
    }
    removeQuietly(staging);  // now holds the old bundle
    logLine("Update to " + arguments.version + " installed");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const auto arguments = parse(argc, argv);
    if (!arguments) {
        logLine(
            "Bad arguments; usage: velt-updater --pid PID --target BUNDLE --dmg PACKAGE "
            "--version VERSION [--relaunch] [--wait-seconds N]");
        return 2;
    }
    return install(*arguments);
}
