#pragma once
// input\fixes.xml: codes that add-on makers use instead of real ICAO codes, and how aircraft.cfg readers
// repair them. Read once on the start-up thread after the aircraft database, against which every entry is
// checked; read-only afterwards.

#include "base/text_hash.h"
#include "liveries/dbase.h"

#include <string>

namespace ory {

extern TextMap<std::string> modelFixes; // wrong model code to the real one
extern TextOrderedSet pvtFixes;         // codes of private owners: they become "PVT"
extern TextOrderedSet govFixes;         // codes of government operators: they become "PVT" too

// True when all three tables have entries. Throws UserErrorException 3 when the file can't be loaded.
bool readFixes();
void clearFixes();

} // namespace ory
