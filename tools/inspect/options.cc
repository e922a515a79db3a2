#include "inspect/options.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <sstream>

#include "inspect/output.h"

namespace harbix::inspect {
namespace {

constexpr char ARCHIVE_HELP[] = "a backup; - is standard input";

/// One command line and what is read from it.
class CommandLine {
 public:
  CommandLine() {
    app_.set_version_flag("--version", "harbix-inspect " HARBIX_VERSION, "print the version");
    app_.set_help_flag("-h,--help", "print this help, or that of a command");
    app_.require_subcommand(1);
    app_.footer(
        "Exit status: 0 for all well, 1 for something missing, wrong or different, 2 for what cannot be read "
        "or\n"
        "written, 64 for a wrong command line. The manual page harbix-inspect(1) has more.");
    add_list();
    add_verify();
    add_checksums();
    add_compare();
    add_extract();
    add_plan();
  }

  std::optional<Request> parse(int argc, const char* const* argv, int& status) try {
    app_.parse(argc, argv);
    return request_;
  } catch (const CLI::ParseError& end) {
    std::ostringstream text;
    std::ostringstream error;
    status = app_.exit(end, text, error) == 0 ? STATUS_GOOD : STATUS_USAGE;
    Output output(STDOUT_FILENO);
    output.write(text.str());
    output.flush();
    std::string reason = error.str();
    if (!reason.empty())
      complain(reason.substr(0, reason.find('\n')) + " ('harbix-inspect --help' explains)");
    return std::nullopt;
  }

 private:
  CLI::App* add(Command command, const char* name, const char* help) {
    CLI::App* const added = app_.add_subcommand(name, help);
    added->add_flag("--json", request_.is_json, "print one JSON object a line");
    added->callback([this, command] { request_.command = command; });
    return added;
  }

  void add_archive(CLI::App* command, const char* name = "ARCHIVE", const char* help = ARCHIVE_HELP) {
    // Of its own: a list would take all that follows.
    const auto take = [this](const std::string& archive) { request_.archives.push_back(archive); };
    command->add_option_function<std::string>(name, take, help)->required()->type_name("");
  }

  void add_colour(CLI::App* command) {
    command->add_option("--color", request_.colour, "auto, always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}));
  }

  void add_list() {
    CLI::App* const command =
        add(Command::LIST, "list", "print the packages of an archive, or the items of some");
    add_archive(command);
    command->add_option("PACKAGE", request_.names, "a package, such as /media/Music or Music: its items")
        ->type_name("");
    command->add_flag("--long,-l", request_.is_long, "print the items of all packages");
    command->add_flag("--bytes,-b", request_.shows_bytes, "print all sizes in bytes");
    add_colour(command);
  }

  void add_verify() {
    CLI::App* const command = add(Command::VERIFY, "verify", "find all that is wrong with archives");
    command->add_option("ARCHIVE", request_.archives, ARCHIVE_HELP)->required()->type_name("");
    command
        ->add_option("--checksums", request_.checksums, "the file that 'checksums' has made of the archive")
        ->type_name("FILE");
    command->add_flag("--notes", request_.shows_notes, "print also what is odd, but costs nothing");
  }

  void add_checksums() {
    CLI::App* const command =
        add(Command::CHECKSUMS, "checksums", "print a SHA-256 for each file, as sha256sum does");
    add_archive(command);
  }

  void add_compare() {
    CLI::App* const command = add(Command::COMPARE, "compare", "print what differs between two archives");
    add_archive(command, "OLD", "a backup; - is standard input");
    add_archive(command, "NEW", "another one; one of the two is a plain file");
  }

  void add_extract() {
    CLI::App* const command = add(Command::EXTRACT, "extract", "put some files below a folder");
    add_archive(command);
    command->add_option("PATH", request_.names, "a package, a folder or a file of the archive")
        ->required()
        ->type_name("");
    command->add_option("--to", request_.folder, "the folder; - prints one file on standard output")
        ->required();
  }

  void add_plan() {
    CLI::App* const command =
        add(Command::PLAN, "plan", "on a device: print what a restore would do, and do nothing");
    add_archive(command);
    command->add_option("KEYWORD", request_.names, "app, media or settings; all that the archive holds")
        ->check(CLI::IsMember({"app", "media", "settings"}))
        ->type_name("");
    add_colour(command);
  }

  CLI::App app_{"Shows, verifies and compares backups of harbix.", "harbix-inspect"};
  Request request_;
};

}  // namespace

std::optional<Request> parse_options(int argc, const char* const* argv, int& status) {
  return CommandLine().parse(argc, argv, status);
}

}  // namespace harbix::inspect
