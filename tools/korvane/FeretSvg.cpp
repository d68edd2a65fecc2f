// "korvane feret N --svg FILE": the direction set as a picture. Each direction (antipodes
// identified, so each is taken on the upper half sphere) is a dot in the equal-area projection
// of the half sphere centred on the pole: polar angle t at radius sqrt(2) sin(t / 2), so the
// equator is the unit circle and equal areas of the sphere stay equal on the page. A dot's shade
// is the angle to its nearest neighbour: an even sampling is one colour, a gap or a crowd shows.
#include <algorithm>
#include <cmath>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <stdexcept>

#include <KorvaneAPI/KorvaneAPI.h>

#include "Calls.h"
#include "Covering.h"

namespace korvane {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kSize = 640;     // the picture's width; the disc's centre is at kCentre
constexpr double kCentre = 320;
constexpr double kRadius = 270;   // the equator's radius on the page
constexpr std::size_t kMaxDots = 20000;

double degrees(double radians) { return radians * 180.0 / kPi; }

// The angle between two directions, antipodes identified.
double lineAngle(const Direction& a, const Direction& b) {
    const double dot = std::fabs(a[0] * b[0] + a[1] * b[1] + a[2] * b[2]);
    return std::acos(std::min(1.0, dot));
}

std::vector<double> nearestAngles(const std::vector<Direction>& set) {
    std::vector<double> nearest(set.size(), kPi / 2);
    for (std::size_t i = 0; i < set.size(); ++i)
        for (std::size_t j = i + 1; j < set.size(); ++j) {
            const double angle = lineAngle(set[i], set[j]);
            nearest[i] = std::min(nearest[i], angle);
            nearest[j] = std::min(nearest[j], angle);
        }
    return nearest;
}

// A dark-blue to green to yellow scale; t in [0, 1].
std::string shade(double t) {
    static const double stops[][3] = {{68, 1, 84}, {59, 82, 139}, {33, 145, 140}, {94, 201, 98}, {253, 231, 37}};
    const double at = std::clamp(t, 0.0, 1.0) * 4.0;
    const int low = std::min(3, static_cast<int>(at));
    const double f = at - low;
    std::ostringstream colour;
    colour << "rgb(";
    for (int c = 0; c < 3; ++c)
        colour << (c ? "," : "") << static_cast<int>(std::lround(stops[low][c] + f * (stops[low + 1][c] - stops[low][c])));
    colour << ')';
    return colour.str();
}

// The page position of a direction taken on the upper half sphere.
std::pair<double, double> project(Direction d) {
    if (d[2] < 0) d = {-d[0], -d[1], -d[2]};
    const double polar = std::acos(std::min(1.0, d[2]));
    const double r = std::sqrt(2.0) * std::sin(polar / 2);
    const double azimuth = std::atan2(d[1], d[0]);
    return {kCentre + kRadius * r * std::cos(azimuth), kCentre - kRadius * r * std::sin(azimuth)};
}

}  // namespace

std::string feretSvg(int n) {
    const std::vector<Direction> set = directionsFromDegrees(getUniformFeret3dAngles(n));
    if (set.empty()) throw CallFailed("getUniformFeret3dAngles failed: no directions for N = " + std::to_string(n));
    if (set.size() > kMaxDots)
        throw ScriptError("N: " + std::to_string(n) + " dots are too many for a picture (at most " +
                          std::to_string(kMaxDots) + ")");
    const std::vector<double> nearest = nearestAngles(set);
    const auto [lowest, highest] = std::minmax_element(nearest.begin(), nearest.end());
    const double low = *lowest;
    const double span = std::max(*highest - low, 1e-12);
    double mean = 0;
    for (const double angle : nearest) mean += angle;
    mean /= static_cast<double>(nearest.size());
    const double covering = set.size() > 2 ? coveringRadius(set) : kPi / 2;
    // A dot half the spacing across (near the pole the projection draws an angle a at a / sqrt(2)),
    // readable from 1 to 20000 dots.
    const double dot = std::clamp(kRadius * mean / (4.0 * std::sqrt(2.0)), 0.8, 8.0);

    std::ostringstream svg;
    svg << std::fixed << std::setprecision(2);
    svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << kSize << "\" height=\"" << kSize + 80
        << "\" viewBox=\"0 0 " << kSize << ' ' << kSize + 80 << "\" font-family=\"sans-serif\" font-size=\"13\">\n"
        << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
    svg << "<text x=\"" << kCentre << "\" y=\"24\" text-anchor=\"middle\" font-size=\"16\">" << set.size()
        << " Feret directions, equal-area view of the half sphere from its pole</text>\n";
    // The equator, the circles of polar angle 30 and 60 degrees, and the axes.
    svg << "<g fill=\"none\" stroke=\"#bbb\">\n";
    for (const int polar : {30, 60, 90}) {
        const double r = kRadius * std::sqrt(2.0) * std::sin(polar * kPi / 360.0);
        svg << "<circle cx=\"" << kCentre << "\" cy=\"" << kCentre << "\" r=\"" << r << "\""
            << (polar == 90 ? " stroke=\"#555\"" : " stroke-dasharray=\"4 4\"") << "/>\n";
        svg << "<text x=\"" << kCentre + r * 0.7071 + 3 << "\" y=\"" << kCentre - r * 0.7071 - 3
            << "\" fill=\"#888\" stroke=\"none\">" << polar << "&#176;</text>\n";
    }
    svg << "<path d=\"M" << kCentre - kRadius << ' ' << kCentre << "H" << kCentre + kRadius << "M" << kCentre << ' '
        << kCentre - kRadius << "V" << kCentre + kRadius << "\"/>\n</g>\n";
    svg << "<text x=\"" << kCentre + kRadius + 6 << "\" y=\"" << kCentre + 4 << "\" fill=\"#555\">x</text>\n"
        << "<text x=\"" << kCentre - 4 << "\" y=\"" << kCentre - kRadius - 6 << "\" fill=\"#555\">y</text>\n";
    // The dots, the widest gaps drawn last so that they stay on top.
    std::vector<std::size_t> order(set.size());
    for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return nearest[a] < nearest[b]; });
    svg << "<g stroke=\"black\" stroke-width=\"" << std::min(0.6, dot / 6) << "\">\n";
    for (const std::size_t i : order) {
        const auto [x, y] = project(set[i]);
        svg << "<circle cx=\"" << x << "\" cy=\"" << y << "\" r=\"" << dot << "\" fill=\""
            << shade((nearest[i] - low) / span) << "\"/>\n";
    }
    svg << "</g>\n";
    // The scale: nearest-neighbour angle, and the set's figures.
    const double barY = kSize + 10;
    svg << "<defs><linearGradient id=\"scale\">";
    for (int s = 0; s <= 4; ++s) svg << "<stop offset=\"" << s * 25 << "%\" stop-color=\"" << shade(s / 4.0) << "\"/>";
    svg << "</linearGradient></defs>\n"
        << "<rect x=\"120\" y=\"" << barY << "\" width=\"400\" height=\"14\" fill=\"url(#scale)\" stroke=\"#555\"/>\n"
        << std::setprecision(3) << "<text x=\"114\" y=\"" << barY + 12 << "\" text-anchor=\"end\">" << degrees(low)
        << "&#176;</text>\n<text x=\"526\" y=\"" << barY + 12 << "\">" << degrees(low + span) << "&#176;</text>\n"
        << "<text x=\"" << kCentre << "\" y=\"" << barY + 32 << "\" text-anchor=\"middle\">angle to the nearest "
        << "direction (mean " << degrees(mean) << "&#176;)</text>\n"
        << "<text x=\"" << kCentre << "\" y=\"" << barY + 52 << "\" text-anchor=\"middle\">covering radius "
        << degrees(covering) << "&#176;, worst Feret error " << 100.0 * (1.0 - std::cos(covering)) << "%</text>\n";
    svg << "</svg>\n";
    return svg.str();
}

void writeFeretSvg(int n, const std::string& file) {
    const std::string svg = feretSvg(n);
    std::ofstream out(file);
    if (!(out << svg)) throw std::runtime_error("cannot write " + file);
}

}  // namespace korvane
