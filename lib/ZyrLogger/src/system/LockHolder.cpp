// Names the process that holds a log file's lock, so that an operator learns why it does not rotate: any process that
// can read the file may lock it.

#include "system/LockHolder.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include <sys/sysmacros.h>
#include <unistd.h>

namespace Zyr {

namespace {

/// A line of /proc/locks: "1: FLOCK  ADVISORY  WRITE 4711 08:01:131 0 EOF"
struct LockLine
{
    std::string number, kind, strictness, access, process, device;
};

/// Whether the lock has the inode's number, and whether the device's too: on some file systems, stat() gives another
/// device than /proc/locks.
enum class Match { No, Inode, File };

Match compare(const std::string& device, const struct stat& file)
{
    unsigned long numbers[3] = {};
    const char* at = device.data();
    const char* const end = at + device.size();
    for (int i = 0; i < 3; ++i) {
        const auto [rest, error] = std::from_chars(at, end, numbers[i], i < 2 ? 16 : 10);
        if (error != std::errc())
            return Match::No;
        at = rest + (rest != end);
    }
    if (numbers[2] != file.st_ino)
        return Match::No;
    return numbers[0] == major(file.st_dev) && numbers[1] == minor(file.st_dev) ? Match::File : Match::Inode;
}

} // namespace

std::string lockHolder(const struct stat& file)
{
    std::ifstream locks("/proc/locks");
    std::string process;
    for (std::string text; std::getline(locks, text);) {
        LockLine line;
        std::istringstream words(text);
        words >> line.number >> line.kind >> line.strictness >> line.access >> line.process >> line.device;
        const Match match = line.kind == "FLOCK" ? compare(line.device, file) : Match::No; // "->": a waiting process
        if (match == Match::File || (match == Match::Inode && process.empty()))
            process = line.process;
        if (match == Match::File)
            break;
    }
    if (process.empty() || process == "0" || process == "-1") // in another PID namespace
        return {};
    std::string name;
    std::getline(std::ifstream("/proc/" + process + "/comm"), name);
    const bool hasEnded = name.empty() && ::kill(std::atoi(process.c_str()), 0) != 0 && errno == ESRCH;
    return "process " + process + (hasEnded ? ", which has ended" : name.empty() ? "" : " (" + name + ')');
}

} // namespace Zyr
