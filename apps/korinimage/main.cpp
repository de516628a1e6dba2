#include <fmt/format.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <new>
#include <string>
#include <system_error>
#include <vector>

#include "commands.h"
#include "interrupt.h"
#include "korinimage/exceptions.h"
#include "korinimage/version.h"
#include "platform/terminal.h"
#include "session.h"

namespace {

constexpr int kFailure = 1;
constexpr int kUsage = 2;
constexpr int kSignalBase = 128;  // exit code of an interrupted command, as shells count

int Fail(const std::string& text, int code) {
  std::fflush(stdout);
  fmt::print(stderr, "korinimage: {}\n", text);
  return code;
}

int Run(const std::vector<std::string>& words) {
  CLI::App app("Looks at, measures and converts astronomical frames of any size.", "korinimage");
  app.set_version_flag("--version", std::string("korinimage ") + korin::Version());
  app.fallthrough();  // the shared options may follow the subcommand
  app.require_subcommand(1);
  app.footer(
      "Exit codes: 0 success, 1 failure, 2 wrong usage, 130 interrupted.\n"
      "Output files appear whole or not at all.");
  korin::app::Session session;
  session.AddOptions(app);
  korin::app::AddInfoCommand(app, session);
  korin::app::AddStatsCommand(app, session);
  korin::app::AddHistogramCommand(app, session);
  korin::app::AddPreviewCommand(app, session);
  korin::app::AddConvertCommand(app, session);
  korin::app::AddHeaderCommand(app, session);
  korin::app::AddFillCommand(app, session);
  korin::app::AddPhysicalCommand(app, session);
  korin::app::AddBitmapCommand(app, session);
  korin::app::AddExchangeCommands(app, session);
  korin::app::AddMemoryCommand(app, session);
  korin::app::AddSynthCommand(app, session);

  try {
    std::vector<const char*> line;
    for (const std::string& word : words) line.push_back(word.c_str());
    app.parse(static_cast<int>(line.size()), line.data());
    errno = 0;
    if (std::fflush(stdout) != 0) throw std::system_error(errno, std::generic_category());
    return 0;
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kUsage;
  } catch (const korin::app::UsageError& error) {
    return Fail(error.what(), kUsage);
  } catch (const korin::app::Interrupted& interrupt) {
    return Fail("interrupted", kSignalBase + interrupt.Signal());
  } catch (const korin::CKorinImageBadAllocException& error) {
    return Fail(std::string(error.what()) +
                    "\nkorinimage: a larger --memory or --disk, or --policy blocks, may help",
                kFailure);
  } catch (const std::bad_alloc&) {
    return Fail("the system has no memory left", kFailure);
  } catch (const std::filesystem::filesystem_error& error) {
    return Fail(error.what(), kFailure);
  } catch (const std::system_error& error) {  // from printing
    // A reader that has seen enough, as head has, wants no message.
    if (error.code() == std::errc::broken_pipe) return kFailure;
    return Fail("standard output cannot be written: " + error.code().message(), kFailure);
  } catch (const std::exception& error) {
    return Fail(error.what(), kFailure);
  }
}

}  // namespace

int main(int argc, char** argv) {
  korin::platform::OccupyClosedStreams();
  korin::app::WatchForInterrupts();
  return Run(korin::platform::CommandWords(argc, argv));
}
