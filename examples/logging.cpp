// Sets up Poco's loggers from a properties file, and shows why that comes first.
#include <plexa_can/VirtualCanBus.h>
#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnSyncRequest.h>

#include <Poco/FormattingChannel.h>
#include <Poco/LoggingFactory.h>
#include <Poco/LoggingRegistry.h>
#include <Poco/PatternFormatter.h>
#include <Poco/StringTokenizer.h>

#include <fstream>
#include <iostream>
using namespace Poco;
using namespace tarn;

void SetProperty(const std::string& key, const std::string& value) // logging.KIND.NAME.PROPERTY
{
    const StringTokenizer part(key, ".");
    auto& known = LoggingRegistry::defaultRegistry();
    if (part[1] == "loggers" && part[3] != "name") // here NAME is the logger's own, or root
        Logger::get(part[2] == "root" ? "" : part[2]).setProperty(part[3], value);
    else if (part[3] == "class")
        known.registerChannel(part[2], LoggingFactory().createChannel(value));
    else if (part[3] == "pattern")
        known.registerChannel(part[2], new FormattingChannel(new PatternFormatter(value),
                                                             known.channelForName(part[2])));
    else if (part[1] == "channels")
        known.channelForName(part[2])->setProperty(part[3], value);
}

void SetUpLogging(const std::string& path)
{
    std::ifstream file(path);
    if (!file.is_open())
        throw std::runtime_error("cannot open " + path);
    for (std::string line; std::getline(file, line);)
        if (const auto at = line.find(" = "); at != std::string::npos && line[0] != '#')
            SetProperty(line.substr(0, at), line.substr(at + 3));
}

int main(int count, char** arguments)
try {
    std::clog.rdbuf(std::cout.rdbuf()); // Poco's ConsoleChannel writes to it
    SetUpLogging(count > 1 ? arguments[1] : "logging.properties");
    const auto dispatcher = TarnAsyncDispatcher::Create(VirtualCanBus::Create()->Connect());
    auto sync = TarnSyncRequest::Create(dispatcher);
    TarnMessage request, response;
    sync->Send(request, response, 0);        // nobody answers
    dispatcher->SubscribeTarget(9, nullptr); // a mistake
    std::cout << "TarnSyncRequest: trace\n";
    Logger::get("TarnSyncRequest").setLevel("trace");
    sync->Send(request, response, 0); // its statements have been decided
    sync.reset();                     // those of the destructor had not been reached
} catch (const std::exception& exception) {
    std::cerr << "logging: " << exception.what() << '\n';
    return 1;
}
