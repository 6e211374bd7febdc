// The log file as a link: its properties, and requests to its writer.

#include "chain/LogFileChannel.h"

#include "store/LogFile.h"

#include <Poco/Exception.h>
#include <Poco/Message.h>

#include <filesystem>
#include <vector>

namespace Zyr {

namespace {

/// A relative path stays where it led to when it was set: a program that becomes a daemon changes its directory.
std::string absolute(const std::string& path)
{
    std::error_code error;
    const std::filesystem::path result = std::filesystem::absolute(path, error);
    return error || path.empty() ? path : result.string();
}

} // namespace

LogFileChannel::LogFileChannel()
    : handle(std::make_shared<WriterHandle>(WriterHandle{std::make_shared<LogWriter>(&LogFile::make)}))
{
    current = properties.settings();
    writer().configure(current);
}

LogFileChannel::~LogFileChannel() = default;

void LogFileChannel::open()
{
    FileSettings settings;
    {
        const Guard guard(propertiesMutex);
        settings = current;
    }
    CallWatch unwatched;
    AppendFile file;
    if (const std::error_code error = file.open(settings.path, unwatched))
        throw Poco::OpenFileException(settings.path, error.message(), error.value());
    writer().adopt(std::move(file), settings.rotateOnOpen);
}

void LogFileChannel::close()
{
    writer().close();
}

void LogFileChannel::log(const Poco::Message& message)
{
    writer().push(message.getText());
}

void LogFileChannel::setProperty(const std::string& name, const std::string& value)
{
    const Guard guard(propertiesMutex);
    properties.set(name, value);
    if (name == PROP_PATH)
        Poco::FileChannel::setProperty(name, value); // for path()
    FileSettings wanted = properties.settings();
    wanted.path = name == PROP_PATH ? absolute(value) : current.path;
    current = std::move(wanted);
    writer().configure(current);
}

std::string LogFileChannel::getProperty(const std::string& name) const
{
    const Guard guard(propertiesMutex);
    return properties.get(name);
}

void LogFileChannel::lock()
{
    propertiesMutex.lock();
    writer().lock();
}

void LogFileChannel::unlock()
{
    writer().unlock();
    propertiesMutex.unlock();
}

void LogFileChannel::renewInChild()
{
    static auto& inherited = *new std::vector<std::shared_ptr<LogWriter>>;
    inherited.push_back(handle->writer);
    handle->writer = writer().copyForChild();
    propertiesMutex.unlock();
}

} // namespace Zyr
