// Which file the log currently is, and which of its writers is the first one.

#include "store/ActiveFile.h"

#include "store/LogProblem.h"
#include "system/LockHolder.h"
#include "system/TrustedPath.h"

#include <chrono>
#include <utility>

namespace Zyr {

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr int maxTries = 5; // while the first writer replaces the file

} // namespace

ActiveFile::ActiveFile(const FileSettings& logSettings, CallWatch& itsWatch) noexcept
    : settings(logSettings)
    , watch(itsWatch)
    , lines(itsWatch)
{
}

std::error_code ActiveFile::makeReady()
{
    if (lines.current().isOpen() && !hasPathOfSettings())
        close();
    if (!lines.current().isOpen()) {
        if (const std::error_code error = openPath())
            return error;
    } else if (firstWriter) {
        const auto now = Steady::now();
        if (now - lastLook < 1s)
            return {};
        lastLook = now;
        if (findAgain() == PathError::NotThisFile) { // after other errors it counts as unchanged
            if (const std::error_code error = openPath())
                return error;
        } else {
            lines.countOthers();
        }
    }
    return firstWriter ? std::error_code() : joinFirstWriter();
}

std::error_code ActiveFile::confirm()
{
    lookAgain();
    if (const std::error_code error = makeReady())
        return error;
    if (!isRotatedHere() || findInPlace() != PathError::NotThisFile)
        return {};
    // It was moved, and replaced by a link to it.
    if (const std::error_code error = openPath())
        return error;
    return firstWriter ? std::error_code() : joinFirstWriter();
}

void ActiveFile::adopt(AppendFile&& opened)
{
    takeUp(std::move(opened));
}

LineAppender::Written ActiveFile::append(const LineBatch& batch, std::size_t wanted) noexcept
{
    const auto written = lines.append(batch, wanted, {settings.flush, firstWriter, place.get()});
    if (!firstWriter)
        lines.current().allowCompression(watch);
    return written;
}

void ActiveFile::close() noexcept
{
    ++closings;
    lines.close();
    place.reset();
}

/// If the path now has a link that is not followed, the open file stays.
std::error_code ActiveFile::openPath()
{
    for (int tries = 0; tries < maxTries; ++tries) {
        AppendFile fresh;
        if (const std::error_code error = fresh.open(settings.path, watch)) {
            if (error == PathError::ForeignLink && lines.current().isOpen()) {
                reportLink();
                return {};
            }
            close();
            return error;
        }
        takeUp(std::move(fresh));
        if (lines.current().isOpen())
            return {};
    }
    return std::make_error_code(std::errc::resource_unavailable_try_again);
}

/// Checks whether the path still leads to the open file.
std::error_code ActiveFile::findAgain()
{
    const std::error_code error = lines.current().findAgain(openedPath, watch);
    if (error == PathError::ForeignLink)
        reportLink();
    else if (!error)
        reportedLink = false;
    return error;
}

/// Leaves no file open if the path no longer leads to `fresh`.
void ActiveFile::takeUp(AppendFile&& fresh)
{
    const bool samePath = hasPathOfSettings();
    if (!samePath)
        openedPath = settings.path;
    lastLook = Steady::now();
    const std::shared_ptr<const LogPlace> found = fresh.foundAt();
    if (lines.current().isSame(fresh)) {
        fresh.close(watch);
        if (!samePath || !found || !place || !found->isSame(*place))
            place = found;
        return;
    }
    firstWriter = !fresh.isRegular() || fresh.lock(watch);
    close();
    if (firstWriter && fresh.isRegular() && fresh.findAgain(openedPath, watch) == PathError::NotThisFile) {
        fresh.close(watch); // the former owner of the lock made an archive of it before releasing the lock
        return;
    }
    lines.begin(std::move(fresh));
    place = found;
    if (firstWriter)
        becomeFirstWriter();
    else if (!std::exchange(reportedOther, true))
        reportOther();
}

void ActiveFile::becomeFirstWriter()
{
    firstWriter = true;
    reportedOther = false;
    lines.countAll();
}

/// For a writer that is not the first one. Becomes the first one if there is none any more.
std::error_code ActiveFile::joinFirstWriter()
{
    AppendFile& file = lines.current();
    for (int tries = 0; tries < maxTries; ++tries) {
        if (file.isOpen() && file.holdOffCompression(watch)) {
            if (const std::error_code error = findAgain(); error != PathError::NotThisFile) {
                // The lock means nothing if the path may no longer lead to the file, so that is checked again under it.
                if (error || !file.lock(watch) || findAgain())
                    return {};
                file.allowCompression(watch);
                becomeFirstWriter();
                return {};
            }
            file.allowCompression(watch);
        }
        if (const std::error_code error = openPath())
            return error;
        if (firstWriter)
            return {};
    }
    return std::make_error_code(std::errc::resource_unavailable_try_again);
}

void ActiveFile::reportLink()
{
    if (!std::exchange(reportedLink, true))
        reportLogProblem(openedPath, QString::fromStdString(make_error_code(PathError::ForeignLink).message()) +
                                         u"; the file that is open goes on"_s);
}

void ActiveFile::reportOther()
{
    const std::string holder = lockHolder(lastStatus());
    QString problem = u"another logger writes it; this one appends, and leaves rotation and purging to it"_s;
    if (!holder.empty())
        problem += u" (its lock is held by %1)"_s.arg(QString::fromStdString(holder));
    reportLogProblem(openedPath, problem);
}

} // namespace Zyr
