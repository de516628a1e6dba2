#pragma once

#include <CLI/App.hpp>

#include "session.h"

// One function for each subcommand or pair of them: adds it with its options to the application.
// The subcommand runs in its callback and throws on failure.
namespace korin::app {

void AddInfoCommand(CLI::App& app, Session& session);
void AddStatsCommand(CLI::App& app, Session& session);
void AddHistogramCommand(CLI::App& app, Session& session);
void AddPreviewCommand(CLI::App& app, Session& session);
void AddConvertCommand(CLI::App& app, Session& session);
void AddHeaderCommand(CLI::App& app, Session& session);
void AddMemoryCommand(CLI::App& app, Session& session);
void AddSynthCommand(CLI::App& app, Session& session);
void AddFillCommand(CLI::App& app, Session& session);
void AddPhysicalCommand(CLI::App& app, Session& session);
void AddBitmapCommand(CLI::App& app, Session& session);
void AddExchangeCommands(CLI::App& app, Session& session);

}  // namespace korin::app
