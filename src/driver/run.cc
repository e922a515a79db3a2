#include "driver/run.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <iostream>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "archive/reader.h"
#include "archive/writer.h"
#include "base/flags.h"
#include "base/log.h"
#include "base/places.h"
#include "base/report.h"
#include "base/run_progress.h"
#include "driver/keywords.h"
#include "driver/options.h"
#include "driver/process.h"
#include "driver/size_report.h"
#include "fs/glob.h"
#include "fs/identity.h"
#include "subscribers/subscribers.h"

namespace harbix {
namespace {

using subscribers::SubscriberManager;
using subscribers::Wait;

constexpr int STATUS_REFUSED = 1;
constexpr int STATUS_EXCEPTION = 2;

bool is_selected(const Options& options, const Keyword& keyword) {
  return std::ranges::find(options.keywords, keyword.name) != options.keywords.end();
}

/// A size query is not announced.
void notify_subscribers(const Options& options, const std::string& restore_event,
                        const std::string& backup_event, Wait wait) {
  const std::vector<fs::Path> scripts = fs::list_by_glob(SubscriberManager::FSSCRIPTROOT);
  if (options.restore) {
    SubscriberManager::run(restore_event, wait, scripts);
  } else if (!options.size_only) {
    SubscriberManager::run(backup_event, wait, scripts);
  }
}

void report_request(const Options& options) {
  diagnostics::line(4, "Filename: %s", options.file_name.c_str());
  if (!verbose) return;
  std::cerr << "Filename: " << options.file_name << "\nKeywords: \n";
  for (const std::string& keyword : options.keywords) std::cerr << keyword << '\n';
}

/// The operand comes first in the list: the package ids are those behind it.
std::vector<std::string> package_ids(const Options& options) {
  return options.operands.size() > 1 ? options.operands : std::vector<std::string>();
}

int restore_archive(const Options& options) {
  ArchiveReader reader(options.file_name);
  detach_standard_input();
  int result = 0;
  for (const Keyword& keyword : all_keywords()) {
    if (!is_selected(options, keyword)) continue;
    run_progress::begin_keyword(keyword.name.data());
    reader.begin_section(section_of(keyword, options.keywords));
    result = keyword.restore(reader);
  }
  reader.drain();
  if (const int error = reader.written().synchronize(); error != 0)
    throw std::runtime_error(std::string("What was restored may not be on the medium: ") +
                             std::strerror(error));
  return result;
}

int write_archive(const Options& options) {
  use_utf8_names();
  report::progress("Archiving");
  diagnostics::line(3, "Archiving");
  ArchiveWriter writer(options.size_only ? places::DEV_NULL : options.file_name);
  detach_standard_input();
  const std::vector<std::string> ids = package_ids(options);
  SizeResult total;
  int result = 0;
  for (const Keyword& keyword : all_keywords()) {
    if (!is_selected(options, keyword)) continue;
    run_progress::begin_keyword(keyword.name.data());
    report::progress(keyword.label);
    diagnostics::line(2, "%s", std::string(keyword.label).c_str());
    // Each operation gets a record of its own: some assign what they know instead of adding it.
    SizeResult size;
    result = options.size_only ? keyword.measure(writer, ids, size) : keyword.back_up(writer, ids);
    total += size;
  }
  // What failed before its first entry is no better than the backup of yesterday, which is still there.
  if (result != 0 && !options.size_only && !writer.has_entries()) return result;
  writer.close();
  if (options.size_only) {
    write_size_report(options.file_name, size_report_text(total, writer.compressed_position()));
  }
  return result;
}

int run_archive_stage(const Options& options) {
  if (options.restore) return restore_archive(options);
  if (options.wipe) return STATUS_REFUSED;
  return write_archive(options);
}

constexpr std::string_view FAILURE = "ERROR: ";

int run_guarded(const Options& options) {
  try {
    return run_archive_stage(options);
  } catch (const std::bad_alloc&) {
    report::error("Out of memory", FAILURE);
  } catch (const std::exception& error) {
    report::error(error.what(), FAILURE);
  } catch (...) {
    report::error("Unknown exception", FAILURE);
  }
  return STATUS_EXCEPTION;
}

/// The main run: everything but the notifications.
int run_operation(Options options) {
  if (options.file_name == "-") options.file_name.clear();
  report_request(options);
  prepare_process();
  const int result = run_guarded(options);
  diagnostics::line(2, "Harbix exiting");
  return result;
}

}  // namespace

int run_program(int argc, char* const argv[]) {
  let_writes_fail();
  survive_lack_of_memory();
  run_progress::answer_signals();
  occupy_closed_streams();
  fs::become_superuser();
  const std::optional<Options> options = parse_options(argc, argv);
  if (!options) return STATUS_REFUSED;
  if (const std::optional<Refusal> refusal = check_request(*options)) {
    std::cout << refusal->output << std::flush;
    diagnostics::line(0, "%s", refusal->message.c_str());
    return STATUS_REFUSED;
  }
  if (options->initiation) {
    notify_subscribers(*options, SubscriberManager::RESTORE_START, SubscriberManager::BACKUP_START,
                       Wait::YES);
    return 0;
  }
  if (options->termination) {
    notify_subscribers(*options, SubscriberManager::RESTORE_END, SubscriberManager::BACKUP_END, Wait::NO);
    return 0;
  }
  return run_operation(*options);
}

}  // namespace harbix
