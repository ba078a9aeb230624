#include "drawing.h"

#include "engine/geometry.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cairo.h>
#include <cmath>
#include <memory>
#include <stdexcept>

namespace ory {

namespace {

constexpr double marginMetres = 150;
constexpr double smallestViewMetres = 600;
constexpr double standTickMetres = 20;
constexpr double minimumLabelPixels = 12;

struct Colour {
  double r, g, b; // 0 to 1
};

constexpr std::array<Colour, 6> palette = {{
    {0.85, 0.10, 0.10},
    {0.10, 0.45, 0.85},
    {0.10, 0.60, 0.20},
    {0.80, 0.45, 0.00},
    {0.55, 0.20, 0.70},
    {0.00, 0.60, 0.60},
}};

// Degrees to pixels: a flat frame around the view's centre, north up.
struct View {
  double lat = 0, lon = 0;   // degrees, the centre
  double pixelsPerMetre = 1; //
  double width = 0, height = 0;
  double x(double pointLon) const { return width / 2 + flatFrom(lat, lon, lat, pointLon).x * pixelsPerMetre; }
  double y(double pointLat) const {
    return height / 2 - flatFrom(lat, lon, pointLat, lon).y * pixelsPerMetre;
  }
};

struct Bounds {
  double south = INFINITY, north = -INFINITY, west = INFINITY, east = -INFINITY; // degrees
  void add(double lat, double lon) {
    south = std::min(south, lat);
    north = std::max(north, lat);
    west = std::min(west, lon);
    east = std::max(east, lon);
  }
  bool empty() const { return south > north; }
};

// The airport: its stands, runways and the frames on the ground; without any, every path.
Bounds lf_bounds(const std::vector<FlownObject>& objects, const JudgeContext& context) {
  Bounds b;
  for (const Stand& stand : context.stands)
    b.add(stand.lat, stand.lon);
  for (const Runway& r : context.runways) {
    b.add(r.lat1, r.lon1);
    b.add(r.lat2, r.lon2);
  }
  for (const FlownObject& object : objects)
    for (const FlownPoint& p : object.path)
      if (p.frozen && p.onGround) b.add(p.lat, p.lon);
  if (!b.empty()) return b;
  for (const FlownObject& object : objects)
    for (const FlownPoint& p : object.path)
      if (p.frozen) b.add(p.lat, p.lon);
  for (const RealAircraft& aircraft : context.real)
    for (const RealPoint& p : aircraft.track)
      b.add(p.lat, p.lon);
  if (b.empty()) b.add(0, 0);
  return b;
}

View lf_view(const Bounds& b, int width, int height) {
  View v{(b.south + b.north) / 2, (b.west + b.east) / 2, 1, static_cast<double>(width),
         static_cast<double>(height)};
  const Flat corner = flatFrom(b.south, b.west, b.north, b.east);
  const double across = corner.x + 2 * marginMetres;
  const double down = corner.y + 2 * marginMetres;
  v.pixelsPerMetre =
      std::min(v.width / std::max(across, smallestViewMetres), v.height / std::max(down, smallestViewMetres));
  return v;
}

void lf_colour(cairo_t* c, const Colour& colour, double alpha = 1) {
  cairo_set_source_rgba(c, colour.r, colour.g, colour.b, alpha);
}

void lf_runways(cairo_t* c, const View& v, const std::vector<Runway>& runways) {
  cairo_set_source_rgb(c, 0.55, 0.55, 0.55);
  cairo_set_line_cap(c, CAIRO_LINE_CAP_BUTT);
  for (const Runway& r : runways) {
    cairo_set_line_width(c, std::max(3.0, r.widthMetres * v.pixelsPerMetre));
    cairo_move_to(c, v.x(r.lon1), v.y(r.lat1));
    cairo_line_to(c, v.x(r.lon2), v.y(r.lat2));
    cairo_stroke(c);
  }
  cairo_set_line_cap(c, CAIRO_LINE_CAP_ROUND);
}

void lf_stands(cairo_t* c, const View& v, const std::vector<Stand>& stands) {
  cairo_set_font_size(c, 10);
  cairo_set_line_width(c, 1);
  for (const Stand& s : stands) {
    const double x = v.x(s.lon), y = v.y(s.lat);
    const double tick = standTickMetres * v.pixelsPerMetre;
    cairo_set_source_rgb(c, 0.35, 0.35, 0.35);
    cairo_new_path(c);
    cairo_arc(c, x, y, std::max(3.0, s.radius * metresPerNm * v.pixelsPerMetre), 0, twoPi);
    cairo_stroke(c);
    cairo_move_to(c, x, y);
    cairo_line_to(c, x + tick * std::sin(s.heading), y - tick * std::cos(s.heading));
    cairo_stroke(c);
    if (tick < minimumLabelPixels) continue; // too crowded to read
    cairo_move_to(c, x + 4, y - 4);
    cairo_show_text(c, s.id.c_str());
  }
}

void lf_realTracks(cairo_t* c, const View& v, const std::vector<RealAircraft>& real) {
  cairo_set_source_rgba(c, 0.2, 0.2, 0.2, 0.5);
  cairo_set_line_width(c, 1);
  const std::array<double, 2> dash = {4, 3};
  cairo_set_dash(c, dash.data(), dash.size(), 0);
  for (const RealAircraft& aircraft : real) {
    for (std::size_t i = 0; i < aircraft.track.size(); ++i)
      (i == 0 ? cairo_move_to : cairo_line_to)(c, v.x(aircraft.track[i].lon), v.y(aircraft.track[i].lat));
    cairo_stroke(c);
  }
  cairo_set_dash(c, nullptr, 0, 0);
}

void lf_path(cairo_t* c, const View& v, const FlownObject& object, const Colour& colour) {
  lf_colour(c, colour);
  cairo_set_line_width(c, 2);
  bool drawing = false;
  for (const FlownPoint& p : object.path) {
    if (!p.frozen) continue;
    (drawing ? cairo_line_to : cairo_move_to)(c, v.x(p.lon), v.y(p.lat));
    drawing = true;
  }
  cairo_stroke(c);
}

void lf_marks(cairo_t* c, const View& v, const ObjectFigures& f, const Colour& colour) {
  cairo_set_line_width(c, 2);
  for (const TouchDown& t : f.touchDowns) {
    const double x = v.x(t.lon), y = v.y(t.lat);
    lf_colour(c, colour);
    cairo_move_to(c, x - 6, y - 6);
    cairo_line_to(c, x + 6, y + 6);
    cairo_move_to(c, x - 6, y + 6);
    cairo_line_to(c, x + 6, y - 6);
    cairo_stroke(c);
  }
  for (const ParkedSpell& p : f.parked) {
    lf_colour(c, colour);
    cairo_rectangle(c, v.x(p.lon) - 4, v.y(p.lat) - 4, 8, 8);
    cairo_fill(c);
  }
}

void lf_legend(cairo_t* c, const std::vector<ObjectFigures>& figures) {
  cairo_set_font_size(c, 13);
  double y = 20;
  cairo_set_source_rgb(c, 0.1, 0.1, 0.1);
  cairo_move_to(c, 10, y);
  cairo_show_text(c,
                  "flown paths (lines), real tracks (dashed), touch-downs (x), parked (squares), stands (o)");
  for (std::size_t i = 0; i < figures.size(); ++i) {
    y += 16;
    lf_colour(c, palette[i % palette.size()]);
    cairo_rectangle(c, 10, y - 9, 18, 9);
    cairo_fill(c);
    cairo_set_source_rgb(c, 0.1, 0.1, 0.1);
    cairo_move_to(c, 34, y);
    const ObjectFigures& f = figures[i];
    cairo_show_text(c, fmt::format("{}: {} jumps, ground turn up to {:.1f} deg/s, {} touch-downs, {} parked",
                                   f.atcId, f.jumps, f.groundTurnRate, f.touchDowns.size(), f.parked.size())
                           .c_str());
  }
}

void lf_scaleBar(cairo_t* c, const View& v) {
  double metres = 10;
  while (metres * 10 * v.pixelsPerMetre < v.width / 3)
    metres *= 10;
  if (metres * 5 * v.pixelsPerMetre < v.width / 3) metres *= 5;
  const double y = v.height - 20;
  cairo_set_source_rgb(c, 0.1, 0.1, 0.1);
  cairo_set_line_width(c, 3);
  cairo_move_to(c, 10, y);
  cairo_line_to(c, 10 + metres * v.pixelsPerMetre, y);
  cairo_stroke(c);
  cairo_move_to(c, 10, y - 6);
  cairo_show_text(c, metres >= 1000 ? fmt::format("{:.0f} km", metres / 1000).c_str()
                                    : fmt::format("{:.0f} m", metres).c_str());
}

} // namespace

void drawTraffic(const std::vector<FlownObject>& objects, const std::vector<ObjectFigures>& figures,
                 const JudgeContext& context, const std::string& pngPath, int width, int height) {
  const std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> surface(
      cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height), cairo_surface_destroy);
  const std::unique_ptr<cairo_t, decltype(&cairo_destroy)> owner(cairo_create(surface.get()), cairo_destroy);
  cairo_t* c = owner.get();
  if (cairo_status(c) != CAIRO_STATUS_SUCCESS)
    throw std::runtime_error(fmt::format("can't draw a picture of {} by {} pixels", width, height));
  cairo_set_source_rgb(c, 0.96, 0.96, 0.93);
  cairo_paint(c);
  cairo_set_line_join(c, CAIRO_LINE_JOIN_ROUND);
  const View v = lf_view(lf_bounds(objects, context), width, height);
  lf_runways(c, v, context.runways);
  lf_stands(c, v, context.stands);
  for (std::size_t i = 0; i < objects.size(); ++i)
    lf_path(c, v, objects[i], palette[i % palette.size()]);
  lf_realTracks(c, v, context.real);
  for (std::size_t i = 0; i < figures.size(); ++i)
    lf_marks(c, v, figures[i], palette[i % palette.size()]);
  lf_legend(c, figures);
  lf_scaleBar(c, v);
  const cairo_status_t written = cairo_surface_write_to_png(surface.get(), pngPath.c_str());
  if (written != CAIRO_STATUS_SUCCESS)
    throw std::runtime_error(fmt::format("can't write {}: {}", pngPath, cairo_status_to_string(written)));
}

} // namespace ory
