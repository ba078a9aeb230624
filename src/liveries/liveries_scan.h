#pragma once
// The liveries step of the start-up. With a scan it walks the liveries folders with parallel workers, reads
// every aircraft.cfg and sim.cfg, corrects the records from the aircraft database, writes the reports of
// output\info and output\errors, and keeps the result in output\LiveriesScanned.xml; without a scan it reads
// that file back. Both roads end in processLiveries, which builds the tables of the matcher.

#include "liveries/livery_data.h"

#include <filesystem>
#include <vector>

namespace ory {

extern std::vector<LiveryData> scannedLiveries; // the records, during the step only

// Scans folders in their order (with automatic after them the simulator's add-on folders), or reads
// LiveriesScanned.xml. A folder's records carry its number, 1 to 10; with prioritize an airline and type
// belongs to the first folder that has it. Throws UserErrorException 51, 52 (the file) and 53 (no liveries;
// after a scan, once its reports are written, and naming those that hold lines).
void loadLiveries(bool scan, bool automatic, bool prioritize, std::vector<std::filesystem::path> folders);
// Builds the livery table and the matcher's tables from scannedLiveries, sorted, with their log summary.
void processLiveries();

// The start-up's step: loadLiveries as the parameters say, framed by its log lines; switches SCAN_LIVERIES
// off after a scan that found something. Throws UserErrorException 48 (manual scan without folders) and 43
// (an automatic scan found nothing). Once per process: a restart keeps the tables.
void runLiveriesStep();
// Empties every table of the liveries step, so that a test can run it again.
void clearLiveries();

} // namespace ory
