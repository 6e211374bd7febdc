// What one record costs on its way from Poco::Logger::log() into the file, through our chain and through POCO's own:
// processor time of the whole process per record, alternating, medians of several rounds.
//
//   chain_cost [records per thread and rounds: 500000 5]

#include "Timing.h"

#include <ZyrLogger/ClassLogger.h>
#include <ZyrLogger/Logger.h>

#include <QtCore/QTemporaryDir>

#include <Poco/AsyncChannel.h>
#include <Poco/FileChannel.h>
#include <Poco/FormattingChannel.h>
#include <Poco/Logger.h>
#include <Poco/Message.h>
#include <Poco/PatternFormatter.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace {

struct Load
{
    const char* name;
    int threads;
    const char* rotation;
    const char* compress;
};

constexpr Load loads[] = {
    {"1 thread", 1, "never", "false"},
    {"2 threads", 2, "never", "false"},
    {"1 thread, rotation 1 M", 1, "1 M", "false"},
    {"2 threads, rotation 1 M", 2, "1 M", "false"},
    {"2 threads, rotation 1 M, gzip", 2, "1 M", "true"},
};

const std::string pattern = R"({"timestamp":"%Y-%m-%dT%H:%M:%S.%i%Z","level":"%p","msg":"%t"})";
const std::string names = "fatal,panic,error,warn,notice,info,debug,trace";

void burst(Poco::Logger& logger, int threads, int records)
{
    std::vector<std::thread> all;
    for (int thread = 0; thread < threads; ++thread) {
        all.emplace_back([&logger, records] {
            // A copy of one message with another text, so that the record itself costs little.
            Poco::Message message("Bench", "", Poco::Message::PRIO_INFORMATION);
            const std::string tail(50, 'x');
            for (int i = 0; i < records; ++i) {
                message.setText(std::to_string(i) + tail);
                message.setTime(Poco::Timestamp());
                logger.log(message);
            }
        });
    }
    for (std::thread& thread : all)
        thread.join();
}

void runStock(const std::string& directory, const Load& load, int records)
{
    Poco::AutoPtr<Poco::FileChannel> file(new Poco::FileChannel(directory + "/stock.log"));
    const std::pair<std::string, std::string> properties[] = {
        {Poco::FileChannel::PROP_ROTATION, load.rotation}, {Poco::FileChannel::PROP_ARCHIVE, "number"},
        {Poco::FileChannel::PROP_TIMES, "local"},          {Poco::FileChannel::PROP_COMPRESS, load.compress},
        {Poco::FileChannel::PROP_PURGECOUNT, "10"},        {Poco::FileChannel::PROP_FLUSH, "false"}};
    for (const auto& [name, value] : properties)
        file->setProperty(name, value);
    Poco::AutoPtr<Poco::PatternFormatter> formatter(new Poco::PatternFormatter(pattern));
    formatter->setProperty(Poco::PatternFormatter::PROP_TIMES, "local");
    formatter->setProperty(Poco::PatternFormatter::PROP_PRIORITY_NAMES, names);
    Poco::AutoPtr<Poco::AsyncChannel> async(new Poco::AsyncChannel(file));
    Poco::AutoPtr<Poco::FormattingChannel> formatting(new Poco::FormattingChannel(formatter, async));
    burst(Poco::Logger::create("Stock", formatting), load.threads, records);
    async->close();
    file->close();
}

void runOwn(const std::string& directory, const Load& load, int records)
{
    setenv("QUADEL_CURRENT_LOG_LOCATION", directory.c_str(), 1);
    setenv("QUADEL_CURRENT_CONFIG_LOCATION", directory.c_str(), 1);
    std::ofstream(directory + "/_Own_Log.ini")
        << "[LoggerFileChannel]\nrotation=" << load.rotation << "\ncompress=" << load.compress << '\n';
    Zyr::ClassLogger logger(QStringLiteral("Own"));
    burst(Poco::Logger::get("Own"), load.threads, records);
}

/// Nanoseconds of processor time per record, in a process of its own.
double measure(const Load& load, bool own, int records)
{
    int channel[2];
    if (pipe(channel) != 0)
        std::abort();
    const pid_t child = fork();
    if (child == 0) {
        const QTemporaryDir directory;
        const double before = Bench::processorNanoseconds();
        (own ? runOwn : runStock)(directory.path().toStdString(), load, records);
        const double cost = (Bench::processorNanoseconds() - before) / (double(records) * load.threads);
        const bool sent = write(channel[1], &cost, sizeof cost) == sizeof cost;
        const_cast<QTemporaryDir&>(directory).remove();
        _exit(sent ? 0 : 1);
    }
    double cost = 0;
    int status = 0;
    waitpid(child, &status, 0);
    if (status != 0 || read(channel[0], &cost, sizeof cost) != sizeof cost)
        std::abort();
    close(channel[0]);
    close(channel[1]);
    return cost;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int count, char* words[])
{
    const int records = count > 1 ? std::atoi(words[1]) : 500'000;
    const int rounds = count > 2 ? std::atoi(words[2]) : 5;
    std::printf("%-32s %10s %10s %8s\n", "processor time per record, ns", "POCO", "ours", "ratio");
    for (const Load& load : loads) {
        std::vector<double> stock, own;
        for (int round = 0; round < rounds; ++round) {
            stock.push_back(measure(load, false, records / load.threads));
            own.push_back(measure(load, true, records / load.threads));
        }
        std::printf("%-32s %10.0f %10.0f %8.3f\n", load.name, median(stock), median(own), median(own) / median(stock));
        std::fflush(stdout);
    }
}
