#ifndef KMATH_TURN_H
#define KMATH_TURN_H

/** The cosine and the sine of an angle. */
struct Turn {
    double cosine;
    double sine;
};

/**
 * Cosine and sine of a finite angle in radians: the same bits on every machine, which the standard library's are not.
 * Each is less than one unit of its last place off. An angle whose distance from k * (pi / 2) is at most 2^-51 of
 * itself, so one that was computed from a whole number of quarter turns with two or three roundings, counts as just
 * that: its cosine and sine are 0, 1 or -1, and neither is -0.
 */
Turn turnBy(double angle);

#endif
