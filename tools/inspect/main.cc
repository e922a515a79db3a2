#include <unistd.h>

#include <exception>
#include <new>

#include "inspect/checksums.h"
#include "inspect/compare.h"
#include "inspect/extract.h"
#include "inspect/listing.h"
#include "inspect/options.h"
#include "inspect/output.h"
#include "inspect/plan.h"
#include "inspect/verify.h"

namespace harbix::inspect {
namespace {

int run(const Request& request) {
  Output output(STDOUT_FILENO);
  int status = STATUS_GOOD;
  switch (request.command) {
    case Command::LIST:
      status = list(request, output);
      break;
    case Command::VERIFY:
      status = verify(request, output);
      break;
    case Command::CHECKSUMS:
      status = print_checksums(request, output);
      break;
    case Command::COMPARE:
      status = compare(request, output);
      break;
    case Command::EXTRACT:
      status = extract(request, output);
      break;
    case Command::PLAN:
      status = plan(request, output);
      break;
  }
  output.flush();
  return status;
}

int run_guarded(int argc, const char* const* argv) {
  try {
    int status = STATUS_GOOD;
    const std::optional<Request> request = parse_options(argc, argv, status);
    return request ? run(*request) : status;
  } catch (const std::bad_alloc&) {
    complain("Out of memory");
  } catch (const std::exception& error) {
    complain(error.what());
  }
  return STATUS_TROUBLE;
}

}  // namespace
}  // namespace harbix::inspect

int main(int argc, char* argv[]) {
  harbix::inspect::let_writes_fail();
  return harbix::inspect::run_guarded(argc, argv);
}
