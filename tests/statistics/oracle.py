#!/usr/bin/env python3
"""An independent computation of what statistics/ computes, to compare with.

Each line of standard input asks one question: a word, and numbers as hexadecimal floating point. Each answer is a line
of numbers of the same form. Sums are exact, as fractions. The distributions are those of scipy where it is installed,
and computed here otherwise; the first line of the output says which.

  proportion HITS TOTAL                     interval
  percentile PERCENT VALUE...               percentile
  summary VALUE...                          mean, deviation, median, deviation by moving ranges, its degrees of freedom
  pooled GROUPS SIZE VALUE...               deviation
  normality VALUE...                        A squared, adjusted, p
  capability LOWER UPPER VALUE...           Pp, Ppk, their intervals, Cp, Cpk, their intervals, ppm by each
  compare COUNT VALUE...                    t, its degrees, p, interval; F, p; z, p
  study P A R VALUE...                      sums of squares; F and p of part, appraiser, interaction; the same but for
                                            the interaction when pooled; variances with, and without the interaction
"""

import math
import sys
from fractions import Fraction
from statistics import NormalDist, mean, median, stdev

try:
    import scipy
    from scipy import stats
except ImportError:
    stats = None

NORMAL = NormalDist()


def gamma_below(a, x):
    """The regularised lower incomplete gamma function, by its series."""
    if x <= 0:
        return 0.0
    term = total = 1 / a
    n = a
    while abs(term) > abs(total) * 1e-17:
        n += 1
        term *= x / n
        total += term
    return total * math.exp(-x + a * math.log(x) - math.lgamma(a))


def beta_below(a, b, x):
    """The regularised incomplete beta function, by its continued fraction."""
    if x <= 0 or x >= 1:
        return 0.0 if x <= 0 else 1.0
    if x > (a + 1) / (a + b + 2):
        return 1 - beta_below(b, a, 1 - x)
    front = math.exp(math.lgamma(a + b) - math.lgamma(a) - math.lgamma(b) + a * math.log(x) + b * math.log1p(-x)) / a
    c, d = 1.0, 1 / (1 - (a + b) * x / (a + 1))
    total = d
    for m in range(1, 10000):
        even = m * (b - m) * x / ((a + 2 * m - 1) * (a + 2 * m))
        d, c = 1 / (1 + even * d), 1 + even / c
        total *= d * c
        odd = -(a + m) * (a + b + m) * x / ((a + 2 * m) * (a + 2 * m + 1))
        d, c = 1 / (1 + odd * d), 1 + odd / c
        total *= d * c
        if abs(d * c - 1) < 1e-16:
            break
    return front * total


def bisect(function, target, low, high):
    while function(high) < target:
        high *= 2
    for _ in range(80):
        middle = (low + high) / 2
        low, high = (middle, high) if function(middle) < target else (low, middle)
    return (low + high) / 2


def chi_square_quantile(probability, degrees):
    if stats:
        return stats.chi2.ppf(probability, degrees)
    return bisect(lambda x: gamma_below(degrees / 2, x / 2), probability, 0, degrees)


def t_two_sided(t, degrees):
    if stats:
        return 2 * stats.t.sf(abs(t), degrees)
    return beta_below(degrees / 2, 0.5, degrees / (degrees + t * t))


def t_quantile_two_sided(confidence, degrees):
    if stats:
        return stats.t.ppf((1 + confidence) / 2, degrees)
    return bisect(lambda t: -t_two_sided(t, degrees), confidence - 1, 0, 1)


def f_above(f, numerator, denominator):
    if stats:
        return stats.f.sf(f, numerator, denominator)
    return beta_below(denominator / 2, numerator / 2, denominator / (denominator + numerator * f))


def proportion(hits, total):
    if stats:
        interval = stats.binomtest(int(hits), int(total)).proportion_ci(0.95, "wilson")
        return [interval.low, interval.high]
    z2 = NORMAL.inv_cdf(0.975) ** 2
    # The two fractions p with (p - hits / total)^2 = z^2 p (1 - p) / total.
    a, b, c = 1 + z2 / total, -(2 * hits / total + z2 / total), (hits / total) ** 2
    root = math.sqrt(max(0.0, b * b - 4 * a * c))
    return [(-b - root) / (2 * a), (-b + root) / (2 * a)]


def percentile(percent, *values):
    ordered = sorted(values)
    rank = Fraction(percent) / 100 * (len(ordered) - 1)
    low = math.floor(rank)
    high = min(low + 1, len(ordered) - 1)
    return [float(Fraction(ordered[low]) + (Fraction(ordered[high]) - Fraction(ordered[low])) * (rank - low))]


def moving_range(values):
    ranges = [abs(Fraction(b) - Fraction(a)) for a, b in zip(values, values[1:])]
    deviation = float(mean(ranges)) * math.sqrt(math.pi) / 2
    m = len(ranges)
    # The distances of normal neighbours: E|U||V| for their correlation -1/2.
    shared = 4 / math.pi * (math.sqrt(3) / 2 + math.asin(0.5) / 2) - 4 / math.pi
    variance = (m * (2 - 4 / math.pi) + 2 * (m - 1) * shared) / m**2
    return deviation, (4 / math.pi) / (2 * variance)


def summary(*values):
    exact = [Fraction(value) for value in values]
    return [float(mean(exact)), float(stdev(exact)), float(median(exact)), *moving_range(values)]


def pooled(groups, size, *values):
    squares = Fraction(0)
    for group in range(int(groups)):
        exact = [Fraction(value) for value in values[group * int(size) : (group + 1) * int(size)]]
        squares += sum((value - mean(exact)) ** 2 for value in exact)
    return [math.sqrt(squares / (len(values) - int(groups)))]


def normality(*values):
    exact = [Fraction(value) for value in values]
    centre, deviation, n = mean(exact), stdev(exact), len(values)
    z = sorted(float((value - centre) / Fraction(deviation)) for value in exact)
    below = [NORMAL.cdf(value) for value in z]
    a = -n - sum((2 * i + 1) * (math.log(below[i]) + math.log(NORMAL.cdf(-z[n - 1 - i]))) for i in range(n)) / n
    adjusted = a * (1 + 0.75 / n + 2.25 / n**2)
    for least, sign, c0, c1, c2 in ((0.6, 1, 1.2937, -5.709, 0.0186), (0.34, 1, 0.9177, -4.279, -1.38),
                                    (0.2, -1, -8.318, 42.796, -59.938), (-1, -1, -13.436, 101.14, -223.73)):
        if adjusted > least:
            p = math.exp(c0 + c1 * adjusted + c2 * adjusted**2)
            return [a, adjusted, p if sign > 0 else 1 - p]
    raise AssertionError


def capability(lower, upper, *values):
    exact = [Fraction(value) for value in values]
    centre, n = mean(exact), len(values)
    answer, ppm = [], []
    for deviation, degrees in ((stdev(exact), n - 1), moving_range(values)):
        both = float((Fraction(upper) - Fraction(lower)) / 6) / float(deviation)
        nearest = float(min(centre - Fraction(lower), Fraction(upper) - centre) / 3) / float(deviation)
        half = NORMAL.inv_cdf(0.975) * math.sqrt(1 / (9 * n) + nearest**2 / (2 * degrees))
        answer += [both, nearest,
                   *(both * math.sqrt(chi_square_quantile(p, degrees) / degrees) for p in (0.025, 0.975)),
                   nearest - half, nearest + half]
        ppm.append(1e6 * (NORMAL.cdf(float(Fraction(lower) - centre) / float(deviation))
                          + NORMAL.cdf(float(centre - Fraction(upper)) / float(deviation))))
    return answer + ppm


def compare(count, *values):
    first, second = values[: int(count)], values[int(count) :]
    exact = [[Fraction(value) for value in side] for side in (first, second)]
    errors = [sum((value - mean(side)) ** 2 for value in side) / ((len(side) - 1) * len(side)) for side in exact]
    shift = float(mean(exact[1]) - mean(exact[0]))
    error = math.sqrt(sum(errors))
    degrees = float(sum(errors) ** 2 / sum(e**2 / (len(side) - 1) for e, side in zip(errors, exact)))
    t = shift / error
    half = t_quantile_two_sided(0.95, degrees) * error
    answer = [t, degrees, t_two_sided(t, degrees), shift - half, shift + half]
    if stats:
        # Whole tests of its own, of the same values less a common one.
        whole = [[float(value - exact[0][0]) for value in side] for side in exact]
        welch = stats.ttest_ind(whole[1], whole[0], equal_var=False)
        assert math.isclose(welch.statistic, t, rel_tol=1e-8) and math.isclose(welch.pvalue, answer[2], rel_tol=1e-8)
        levene = stats.levene(*whole, center="median")
        ranks = stats.mannwhitneyu(whole[1], whole[0], method="asymptotic")
        sign = 1 if ranks.statistic > len(first) * len(second) / 2 else -1
        return answer + [levene.statistic, levene.pvalue, -sign * NORMAL.inv_cdf(ranks.pvalue / 2), ranks.pvalue]
    distances = [[abs(value - median(side)) for value in side] for side in exact]
    together = distances[0] + distances[1]
    between = sum(len(side) * (mean(side) - mean(together)) ** 2 for side in distances)
    within = sum((value - mean(side)) ** 2 for side in distances for value in side)
    f = float(between / (within / (len(together) - 2)))
    wins = Fraction(sum(2 if b > a else b == a for a in first for b in second), 2)
    n = len(values)
    ties = sum(t**3 - t for t in (values.count(value) for value in set(values)))
    half_all = Fraction(len(first) * len(second), 2)
    variance = half_all / 6 * (n + 1 - Fraction(ties, n * (n - 1)))
    z = float(max(0, abs(wins - half_all) - Fraction(1, 2))) / math.sqrt(variance)
    return answer + [f, f_above(f, 1, len(together) - 2), math.copysign(z, wins - half_all), 2 * NORMAL.cdf(-z)]


def study(p, a, r, *values):
    """Values by part, appraiser, trial. The sums of squares are those of totals, not of distances from means."""
    p, a, r = int(p), int(a), int(r)
    x = {(i // (a * r), i // r % a, i % r): Fraction(value) for i, value in enumerate(values)}
    correction = sum(x.values()) ** 2 / len(x)

    def squares(key, size):
        totals = {}
        for place, value in x.items():
            totals[key(*place)] = totals.get(key(*place), 0) + value
        return sum(total**2 for total in totals.values()) / size - correction

    part = squares(lambda i, j, k: i, a * r)
    appraiser = squares(lambda i, j, k: j, p * r)
    cells = squares(lambda i, j, k: (i, j), r)
    total = squares(lambda i, j, k: (i, j, k), 1)
    interaction, error = cells - part - appraiser, total - cells
    df_part, df_appraiser, df_interaction, df_error = p - 1, a - 1, (p - 1) * (a - 1), p * a * (r - 1)
    ms = [part / df_part, appraiser / df_appraiser, interaction / df_interaction, error / df_error]
    df_pooled = df_interaction + df_error
    pooled_error = (interaction + error) / df_pooled

    def test(mean_square, degrees, against, against_degrees):
        f = float(mean_square / against)
        return [f, f_above(f, degrees, against_degrees)]

    return [float(value) for value in (
        part, appraiser, interaction, error, total,
        *test(ms[0], df_part, ms[2], df_interaction), *test(ms[1], df_appraiser, ms[2], df_interaction),
        *test(ms[2], df_interaction, ms[3], df_error),
        *test(ms[0], df_part, pooled_error, df_pooled), *test(ms[1], df_appraiser, pooled_error, df_pooled),
        ms[3], max(0, (ms[2] - ms[3]) / r), max(0, (ms[1] - ms[2]) / (p * r)), max(0, (ms[0] - ms[2]) / (a * r)),
        pooled_error, max(0, (ms[1] - pooled_error) / (p * r)), max(0, (ms[0] - pooled_error) / (a * r)))]


QUESTIONS = {function.__name__: function for function in
             (proportion, percentile, summary, pooled, normality, capability, compare, study)}


def main():
    print(f"scipy {scipy.__version__}" if stats else "scipy is not installed; distributions are computed here")
    for line in sys.stdin:
        name, *numbers = line.split()
        print(*(float(number).hex() for number in QUESTIONS[name](*map(float.fromhex, numbers))))


if __name__ == "__main__":
    main()
