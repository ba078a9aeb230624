#include "parking/stands.h"

namespace ory {

std::vector<Stand> stands;
std::string parkAirportCode;
std::string parkAirportName;
double parkAirportLat = 0.0;
double parkAirportLon = 0.0;
std::string parkPublisher;
std::string parkBglPath;
std::int32_t parkAltitudeFeet = 0;
double parkAltitude = 0.0;
bool handmadeFile = false;
QualityFactors qualityFactors;
std::int32_t updateCount = 0;
std::atomic<bool> parameterChanged{false};
std::atomic<bool> parkingSessionOpen{false};
std::filesystem::path learnedFilePath;

void resetStands() {
  stands.clear();
  parkAirportName.clear();
  parkPublisher.clear();
  parkBglPath.clear();
  parkAltitudeFeet = 0;
  parkAltitude = 0.0;
  handmadeFile = false;
  qualityFactors = {};
  updateCount = 0;
  parameterChanged = false;
  parkingSessionOpen = false;
  learnedFilePath.clear();
}

} // namespace ory
