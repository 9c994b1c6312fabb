// The values of nodes, written down as their definitions are: slow, and independent of the library.
#ifndef SYLVORA_TESTS_LOSSFUNCTIONS_NODERULES_H
#define SYLVORA_TESTS_LOSSFUNCTIONS_NODERULES_H

#include <algorithm>
#include <cmath>
#include <vector>

namespace sylvora::tests {

struct WeightedRow {
    double value;
    int weight;
};

struct NodeRules {
    typedef std::vector<WeightedRow> Rows;

    static double WeightUpTo(const Rows& rows, size_t last) {
        double weight = 0;
        for (size_t i = 0; i <= last; ++i) weight += rows[i].weight;
        return weight;
    }

    // Rows of weight 0 must not be among them.
    static double Quantile(Rows rows, double q) {
        std::sort(rows.begin(), rows.end(),
                  [](const auto& a, const auto& b) { return a.value < b.value; });
        const double target = q * WeightUpTo(rows, rows.size() - 1);
        double weight = 0;
        for (size_t i = 0; i < rows.size();) {
            const double value = rows[i].value;
            for (; i < rows.size() && rows[i].value == value; ++i) weight += rows[i].weight;
            if (weight > target) return value;
            if (weight == target && i < rows.size()) return 0.5 * value + 0.5 * rows[i].value;
        }
        return rows.back().value;
    }

    static double Huber(const Rows& rows, double delta) {
        const double median = Quantile(rows, 0.5);
        double sum = 0, weight = 0;
        for (const WeightedRow& row : rows) {
            const double r = row.value - median;
            const double sign = (r > 0) - (r < 0);
            sum += row.weight * (sign * std::min(delta, std::fabs(r)));
            weight += row.weight;
        }
        return median + sum / weight;
    }

    // Of a node for the log loss: `classes` are 0 and 1, `scores` the predictions.
    static double LogLoss(const std::vector<double>& classes, const std::vector<double>& scores,
                          const std::vector<int>& weights) {
        double gradients = 0, seconds = 0;
        for (size_t i = 0; i < classes.size(); ++i) {
            const double g = classes[i] - 1 / (1 + std::exp(-scores[i]));
            gradients += weights[i] * g;
            seconds += weights[i] * (std::fabs(g) * (1 - std::fabs(g)));
        }
        return seconds < 1e-150 ? 0 : gradients / seconds;
    }
};

}  // namespace sylvora::tests

#endif  // SYLVORA_TESTS_LOSSFUNCTIONS_NODERULES_H
