#include "options.h"

#include <CLI/CLI.hpp>

namespace TAVU::records {

std::optional<Options> ParseOptions(int argc, char** argv, int& exit_code) {
  Options options;
  CLI::App app(
      "Prints the records of a stream, into which collectors publish them, as JSON Lines on "
      "standard output: those that no run under the same name of --durable has printed yet.",
      "tavu_records");
  app.add_option("--nats", options.servers, "the stream's servers")
      ->required()
      ->type_name("URL[,URL...]");
  app.add_option("--stream", options.stream, "the stream, and the bucket of that name")
      ->required()
      ->type_name("NAME");
  CLI::Option* const durable =
      app.add_option("--durable", options.durable,
                     "name under which the stream notes what has been printed; readers of one "
                     "name share the records")
          ->capture_default_str()
          ->type_name("NAME");
  CLI::Option* const filter =
      app.add_option("--filter", options.filter,
                     "only records of these subjects, such as NAME.crash.>; belongs to the name "
                     "of --durable from its first run on")
          ->type_name("SUBJECT");
  CLI::Option* const attachments =
      app.add_option("--attachments", options.attachments, "folder for the records' attachments")
          ->type_name("FOLDER");
  CLI::Option* const follow =
      app.add_flag("--follow", options.follow, "wait for further records instead of ending");
  CLI::Option* const create =
      app.add_option("--create", options.replicas,
                     "make the stream and the bucket, on so many servers each, and end")
          ->check(CLI::Range(1, 5))
          ->type_name("REPLICAS");
  for (CLI::Option* reading : {durable, filter, attachments, follow}) create->excludes(reading);
  app.add_option("--max-bytes", options.max_bytes,
                 "of each of the two; when one is full, collectors answer with faults")
      ->transform(CLI::AsSizeValue(false))
      ->type_name("BYTES")
      ->needs(create);
  app.add_option("--max-age", options.max_age_days, "days after which records and objects go")
      ->check(CLI::Range(0.0, 36500.0))
      ->type_name("DAYS")
      ->needs(create);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    exit_code = app.exit(error);
    if (exit_code != 0) exit_code = 2;
    return std::nullopt;
  }
  return options;
}

}  // namespace TAVU::records
