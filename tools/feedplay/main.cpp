// feedplay: RealTraffic's side of Trovalyn_P3D, for tests and demonstrations. See README.md.

#include "busy.h"
#include "convert.h"
#include "play.h"

#include <charconv>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace {

constexpr const char* usage =
    "usage: feedplay play --capture FILE [--speed X] [--port 10747] [--level 1|2] [--host ADDRESS]\n"
    "                     [--record FILE] [--version TEXT] [--no-link] [--start-at-once] [--linger SECONDS]\n"
    "                     [--traffic-port 49005] [--weather-port 49004] [--udp-host ADDRESS]\n"
    "       feedplay convert INPUT... OUTPUT [--registry CSV] [--types JSON]\n"
    "       feedplay busy INPUT OUTPUT --around LAT,LON [--radius NM] [--copies N] [--every SECONDS]\n"
    "                     [--life SECONDS] [--seed N] [--first N]\n";

template <typename Number>
Number lf_number(std::string_view option, std::string_view text) {
  Number value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size())
    throw std::invalid_argument(std::string(option) + " wants a number, not " + std::string(text));
  return value;
}

int lf_play(int count, char** args) {
  ory::PlayOptions options;
  for (int i = 2; i < count; ++i) {
    const std::string_view option = args[i];
    const auto value = [&]() -> std::string_view {
      if (i + 1 >= count) throw std::invalid_argument(std::string(option) + " wants a value");
      return args[++i];
    };
    if (option == "--capture")
      options.capture = value();
    else if (option == "--speed")
      options.speed = lf_number<double>(option, value());
    else if (option == "--port")
      options.port = lf_number<std::uint16_t>(option, value());
    else if (option == "--level")
      options.level = lf_number<int>(option, value());
    else if (option == "--host")
      options.host = value();
    else if (option == "--record")
      options.record = value();
    else if (option == "--version")
      options.version = value();
    else if (option == "--no-link")
      options.link = false;
    else if (option == "--start-at-once")
      options.startAtOnce = true;
    else if (option == "--linger")
      options.linger = lf_number<double>(option, value());
    else if (option == "--traffic-port")
      options.trafficPort = lf_number<std::uint16_t>(option, value());
    else if (option == "--weather-port")
      options.weatherPort = lf_number<std::uint16_t>(option, value());
    else if (option == "--udp-host")
      options.udpHost = value();
    else
      throw std::invalid_argument("unknown option " + std::string(option));
  }
  if (options.capture.empty()) throw std::invalid_argument("--capture is needed");
  if (options.speed <= 0) throw std::invalid_argument("--speed must be above 0");
  if (options.level != 1 && options.level != 2) throw std::invalid_argument("--level is 1 or 2");
  return ory::playCapture(options);
}

int lf_convert(int count, char** args) {
  ory::ConvertOptions options;
  std::vector<std::string> files;
  for (int i = 2; i < count; ++i) {
    const std::string_view option = args[i];
    if (option == "--registry" || option == "--types") {
      if (i + 1 >= count) throw std::invalid_argument(std::string(option) + " wants a file");
      (option == "--registry" ? options.registry : options.types) = args[++i];
    } else {
      files.emplace_back(option);
    }
  }
  if (files.size() < 2) throw std::invalid_argument("convert wants INPUT... OUTPUT");
  options.output = files.back();
  files.pop_back();
  options.inputs = files;
  const std::size_t lines = ory::convertTracks(options);
  std::cout << "wrote " << lines << " traffic lines to " << options.output << std::endl;
  return 0;
}

int lf_busy(int count, char** args) {
  ory::BusyOptions options;
  std::vector<std::string> files;
  bool around = false;
  for (int i = 2; i < count; ++i) {
    const std::string_view option = args[i];
    if (!option.starts_with("--")) {
      files.emplace_back(option);
      continue;
    }
    if (i + 1 >= count) throw std::invalid_argument(std::string(option) + " wants a value");
    const std::string_view value = args[++i];
    if (option == "--around") {
      const std::size_t comma = value.find(',');
      if (comma == std::string_view::npos) throw std::invalid_argument("--around wants LAT,LON");
      options.centreLat = lf_number<double>(option, value.substr(0, comma));
      options.centreLon = lf_number<double>(option, value.substr(comma + 1));
      around = true;
    } else if (option == "--radius") {
      options.radiusNm = lf_number<double>(option, value);
    } else if (option == "--copies") {
      options.copies = lf_number<std::size_t>(option, value);
    } else if (option == "--every") {
      options.everySeconds = lf_number<double>(option, value);
    } else if (option == "--life") {
      options.lifeSeconds = lf_number<double>(option, value);
    } else if (option == "--seed") {
      options.seed = lf_number<std::uint32_t>(option, value);
    } else if (option == "--first") {
      options.firstCopy = lf_number<std::size_t>(option, value);
    } else {
      throw std::invalid_argument("unknown option " + std::string(option));
    }
  }
  if (files.size() != 2) throw std::invalid_argument("busy wants INPUT OUTPUT");
  if (!around) throw std::invalid_argument("--around is needed");
  if (options.everySeconds < 0 || options.lifeSeconds <= 0 || options.radiusNm < 0)
    throw std::invalid_argument("--every, --life and --radius can't be negative, --life not 0");
  options.input = files[0];
  options.output = files[1];
  const std::size_t lines = ory::makeBusyCapture(options);
  std::cout << "wrote " << lines << " traffic lines of " << options.copies << " aircraft to "
            << options.output << std::endl;
  return 0;
}

} // namespace

int main(int count, char** args) {
  try {
    if (count >= 2 && std::strcmp(args[1], "play") == 0) return lf_play(count, args);
    if (count >= 2 && std::strcmp(args[1], "convert") == 0) return lf_convert(count, args);
    if (count >= 2 && std::strcmp(args[1], "busy") == 0) return lf_busy(count, args);
    std::cerr << usage;
    return 2;
  } catch (const std::invalid_argument& e) {
    std::cerr << "feedplay: " << e.what() << '\n' << usage;
    return 2;
  } catch (const std::exception& e) {
    std::cerr << "feedplay: " << e.what() << '\n';
    return 1;
  }
}
