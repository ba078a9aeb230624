// update-check SERVER: the program's data checks of a start against the update server at SERVER, run from a
// program folder (scripts/wine-updates): the same code as the program's, with libcurl over Schannel and
// libzip as the Windows build links them. Prints the installer's message when a newer program came; the exit
// code is 0 when the checks ran to their end.
#include "base/exceptions.h"
#include "base/log.h"
#include "base/parameters.h"
#include "liveries/dbase.h"
#include "updates/updates.h"

#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>

int main(int argc, char** argv) {
  using namespace ory;
  if (argc != 2) {
    std::fputs("usage: update-check SERVER\n", stderr);
    return 2;
  }
  const std::string server = argv[1];
  try {
    openLog();
    loadParameters();
    PROGRAM_INSTALL_PATH.value = std::filesystem::current_path().string();
    checkDataAtStart(server);
    if (!readDbase()) return 1;
    checkDataOfTheDay(server);
  } catch (const UserErrorException& error) {
    std::printf("%s\n", error.what());
    flushLog();
    return error.number == 99 ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "update-check: %s\n", error.what());
    flushLog();
    return 1;
  }
  closeLog();
  return 0;
}
