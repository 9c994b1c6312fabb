// Generating sets with the columns of common tables; see Tables.h.
#include "Tables.h"

#include <algorithm>
#include <cmath>

#include "Random.h"

namespace sylvora::bench {
namespace {

using Row = std::vector<double>;

// Rows that `draw` fills; it returns the label. No expression draws more than one number: the order
// in which operands are evaluated differs between compilers.
template <typename Draw>
RawData Drawn(int numRows, int numColumns, Random& random, Draw draw) {
    RawData data = Empty(numRows, numColumns);
    Row row;
    for (int i = 0; i < numRows; ++i) {
        row.clear();
        data.labelV.push_back(static_cast<float>(draw(row, random)));
        data.valueV.insert(data.valueV.end(), row.begin(), row.end());
    }
    return data;
}

double Steps(double value, double step) {
    return std::round(value / step) * step;
}

double Clamped(double value, double least, double most) {
    return std::clamp(value, least, most);
}

// A category with values of unequal frequency, and what each value adds to the label.
struct Category {
    std::vector<double> upToV;  // cumulated probabilities
    std::vector<double> effectV;

    Category(int numValues, Random& random) {
        double sum = 0.0;
        for (int k = 0; k < numValues; ++k) {
            sum += std::exp(1.5 * random.Normal());
            upToV.push_back(sum);
            effectV.push_back(0.5 * random.Normal());
        }
        for (double& upTo : upToV) upTo /= sum;
    }

    size_t Draw(Random& random) const {
        const auto found = std::upper_bound(upToV.begin(), upToV.end(), random.Uniform());
        return std::min(static_cast<size_t>(found - upToV.begin()), upToV.size() - 1);
    }
};

std::vector<Category> Categories(std::initializer_list<int> sizes, Random& random) {
    std::vector<Category> categoryV;
    for (const int size : sizes) categoryV.emplace_back(size, random);
    return categoryV;
}

// Appends one flag for each value of each category. Returns the sum of the effects.
double AppendFlags(const std::vector<Category>& categoryV, Row& row, Random& random) {
    double effect = 0.0;
    for (const Category& category : categoryV) {
        const size_t value = category.Draw(random);
        effect += category.effectV[value];
        for (size_t k = 0; k < category.effectV.size(); ++k) row.push_back(k == value ? 1.0 : 0.0);
    }
    return effect;
}

// The weather of an hour at a place: eight columns that all flights of the hour share.
struct Weather {
    double temperature, dew, humidity, direction, speed, gust, rain, pressure;

    Weather(int month, int hour, Random& random)
        : temperature(Steps(55.0 - 25.0 * std::cos(month * 0.52) + 8.0 * std::sin(hour * 0.26) +
                                8.0 * random.Normal(),
                            0.9)),
          dew(Steps(temperature - std::fabs(12.0 * random.Normal()), 0.9)),
          humidity(Steps(Clamped(100.0 - 2.2 * (temperature - dew), 10.0, 100.0), 0.01)),
          direction(10.0 * random.Below(37)),
          speed(Steps(std::fabs(10.0 + 5.0 * random.Normal()), 1.15)),
          gust(random.Chance(0.76) ? kMissing
                                   : Steps(speed + std::fabs(8.0 * random.Normal()), 1.15)),
          rain(random.Chance(0.93) ? 0.0 : Steps(0.05 * std::exp(random.Normal()), 0.01)),
          pressure(random.Chance(0.11) ? kMissing : Steps(1018.0 + 7.0 * random.Normal(), 0.1)) {}
};

// What the flights of a year have in common.
struct Schedule {
    static constexpr int kOrigins = 3;
    static constexpr int kHours = 12 * 31 * 24;
    static constexpr int kCarriers = 16;
    static constexpr int kPlanes = 250;  // per carrier

    Category carriers, targets;
    // The tail numbers of each carrier's planes. They say nothing about the carrier.
    std::vector<double> tailV;
    std::vector<double> distanceV;
    std::vector<Weather> weatherV;

    explicit Schedule(Random& random) : carriers(kCarriers, random), targets(105, random) {
        for (int k = 0; k < kCarriers * kPlanes; ++k) {
            tailV.push_back(k);
            std::swap(tailV.back(), tailV[static_cast<size_t>(random.Below(k + 1))]);
        }
        for (int k = 0; k < 105 * kOrigins; ++k) {
            distanceV.push_back(
                std::round(Clamped(700.0 * std::exp(0.7 * random.Normal()), 80.0, 5000.0)));
        }
        for (int k = 0; k < kHours * kOrigins; ++k) {
            weatherV.emplace_back(1 + k % kHours / (31 * 24), k % 24, random);
        }
    }
};

void AppendWeather(const Weather& weather, Row& row) {
    row.insert(row.end(), {weather.temperature, weather.dew, weather.humidity, weather.direction,
                           weather.speed, weather.gust, weather.rain, weather.pressure});
}

// Fills the columns of a flight and returns its delay in minutes.
double DrawFlight(const Schedule& schedule, Row& row, Random& random) {
    const int month = random.Below(12);
    const int day = random.Below(31);
    const int hour = 5 + random.Below(19);
    const int minute = 5 * random.Below(12);
    const int origin = random.Below(Schedule::kOrigins);
    const size_t carrier = schedule.carriers.Draw(random);
    const size_t target = schedule.targets.Draw(random);
    const double distance = schedule.distanceV[target * 3 + static_cast<size_t>(origin)];
    const double airTime = std::round(20.0 + distance / 7.5 + 12.0 * random.Normal());
    const int plane =
        static_cast<int>(carrier) * Schedule::kPlanes + random.Below(Schedule::kPlanes);
    const double tail = schedule.tailV[static_cast<size_t>(plane)];
    const double rank = random.Uniform();  // small flight numbers are frequent
    const double number = std::floor(5000.0 * rank * rank);
    const double arrival = hour * 60.0 + minute + airTime;
    const int when = (month * 31 + day) * 24 + hour;
    const Weather& weather =
        schedule.weatherV[static_cast<size_t>(origin * Schedule::kHours + when)];
    row.insert(row.end(),
               {month + 1.0, day + 1.0, (month * 31 + day) % 7 + 1.0, month * 31.0 + day,
                static_cast<double>(hour), static_cast<double>(minute), hour * 100.0 + minute,
                std::floor(arrival / 60.0), std::fmod(arrival, 60.0), static_cast<double>(carrier),
                static_cast<double>(origin), static_cast<double>(target), tail, number, distance});
    AppendWeather(weather, row);
    // Delays grow in the course of the day, not from one hour to the next.
    const double usual = 1.2 * (hour + minute / 60.0 - 5.0) +
                         8.0 * schedule.carriers.effectV[carrier] +
                         200.0 * std::min(weather.rain, 0.5) + (weather.speed > 18.0 ? 9.0 : 0.0);
    const double chance = 12.0 * random.Normal();
    return std::round(usual - 15.0 + chance + 3.0 * std::exp(1.3 * random.Normal()));
}

}  // namespace

RawData Empty(int numRows, int numColumns) {
    RawData data;
    data.header.numRows = numRows;
    data.header.numColumns = numColumns;
    data.labelV.reserve(static_cast<size_t>(numRows));
    data.valueV.reserve(static_cast<size_t>(numRows) * static_cast<size_t>(numColumns));
    return data;
}

RawData Census(int numRows) {
    Random random(1);
    const std::vector<Category> categoryV = Categories({9, 16, 7, 15, 6, 5, 2, 27}, random);
    const auto draw = [&](Row& row, Random&) {
        const double effect = AppendFlags(categoryV, row, random);
        const double age = std::floor(Clamped(38.0 * std::exp(0.35 * random.Normal()), 17.0, 90.0));
        const double school = 1.0 + random.Below(16);
        const double gain = random.Chance(0.92) ? 0.0 : std::floor(std::exp(8.0 + random.Normal()));
        const double hours = std::round(Clamped(40.0 + 12.0 * random.Normal(), 1.0, 99.0));
        const double weight = std::floor(std::exp(12.0 + 0.5 * random.Normal()));
        row.insert(row.end(), {age, school, gain, hours, weight});
        const double score = effect + (age > 30.0 ? 0.08 * school : 0.0) +
                             (gain > 3000.0 ? 1.0 : 0.0) + 0.02 * hours + 0.7 * random.Normal();
        return score > 2.0 ? 1.0 : 0.0;
    };
    return Drawn(numRows, 92, random, draw);
}

RawData OneHot(int numRows) {
    Random random(1);
    const std::vector<Category> categoryV = Categories({19, 12, 8, 16, 7, 6, 5, 9, 4}, random);
    const auto draw = [&](Row& row, Random&) {
        const double effect = AppendFlags(categoryV, row, random);
        for (int j = 0; j < 3; ++j) row.push_back(random.Normal());
        for (int j = 0; j < 2; ++j) row.push_back(std::exp(random.Normal()));
        return effect + 0.5 * row[90] + std::sin(row[87]) + 0.5 * random.Normal();
    };
    return Drawn(numRows, 91, random, draw);
}

RawData Prices(int numRows) {
    Random random(1);
    const auto draw = [](Row& row, Random& source) {
        const double east = Steps(2.0 * source.Normal(), 0.01);
        const double north = Steps(2.1 * source.Normal() - 0.9 * east, 0.01);
        const double age = std::floor(Clamped(29.0 + 13.0 * source.Normal(), 1.0, 52.0));
        const double homes = std::ceil(400.0 * std::exp(0.75 * source.Normal()));
        const double rooms = std::ceil(homes * 5.2 * std::exp(0.3 * source.Normal()));
        const double bedrooms = std::ceil(homes * 1.07 * std::exp(0.1 * source.Normal()));
        const double people = std::ceil(homes * 2.9 * std::exp(0.3 * source.Normal()));
        const double income = Steps(3.5 * std::exp(0.47 * source.Normal()), 0.0001);
        const double coast = source.Chance(0.5) ? 0.0 : 1.0 + source.Below(4);
        row = {east, north, age, rooms, bedrooms, people, homes, income, coast};
        const double worth = 0.27 * income + 0.5 * std::sin(3.0 * east) * std::cos(2.0 * north) +
                             0.4 * std::log(rooms / people) - 0.15 * coast + 0.005 * age;
        return std::min(std::exp(0.6 * worth - 0.1 + 0.15 * source.Normal()), 5.0);
    };
    return Drawn(numRows, 9, random, draw);
}

RawData Flights(int numRows) {
    Random random(1);
    const Schedule schedule(random);
    const auto draw = [&](Row& row, Random&) { return DrawFlight(schedule, row, random); };
    return Drawn(numRows, 23, random, draw);
}

RawData Physics(int numRows) {
    Random random(1);
    const auto draw = [](Row& row, Random& source) {
        double score = 0.0;
        for (int jet = 0; jet < 5; ++jet) {
            const double momentum = std::exp(0.5 * source.Normal());
            const double angle = source.Normal();
            const double turn = 3.4865 * source.Uniform() - 1.74;
            const int tag = source.Below(3);
            row.insert(row.end(), {momentum, angle, turn, jet == 0 ? source.Normal() : 1.1 * tag});
            score += 0.3 * momentum * std::cos(turn) + 0.2 * tag;
        }
        row.push_back(std::exp(0.6 * source.Normal()));
        for (int j = 0; j < 7; ++j) {
            const double mass = 0.6 * source.Normal() + 0.3 * std::log(row[4u * (j % 5u)]);
            row.push_back(std::exp(0.5 * mass));
            score += (j % 2 == 0 ? 0.5 : -0.4) * row.back();
        }
        return score + 0.8 * source.Normal() > 2.6 ? 1.0 : 0.0;
    };
    return Drawn(numRows, 28, random, draw);
}

RawData Diamonds(int numRows) {
    Random random(1);
    const auto draw = [](Row& row, Random& source) {
        const double carat =
            Steps(Clamped(0.63 * std::exp(0.58 * source.Normal()), 0.2, 5.0), 0.01);
        const double cut = std::min(4.0, std::floor(5.5 * std::sqrt(source.Uniform())));
        const double colour = source.Below(7);
        const double clarity = std::floor(Clamped(3.2 + 1.7 * source.Normal(), 0.0, 7.0));
        const double depth = Steps(61.7 + 1.4 * source.Normal(), 0.1);
        const double table = std::round(57.5 + 2.2 * source.Normal());
        const double width = 6.5 * std::cbrt(carat);
        const double x = Steps(width * (1.0 + 0.01 * source.Normal()), 0.01);
        const double y = Steps(x * (1.0 + 0.005 * source.Normal()), 0.01);
        const double z = Steps(0.5 * (x + y) * depth / 100.0, 0.01);
        row = {carat, cut, colour, clarity, depth, table, x, y, z};
        const double worth = 8.4 + 1.75 * std::log(carat) + 0.03 * cut - 0.07 * colour +
                             0.11 * clarity + 0.1 * source.Normal();
        return std::round(std::exp(worth));
    };
    return Drawn(numRows, 9, random, draw);
}

}  // namespace sylvora::bench
