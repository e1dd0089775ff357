// From where a pixel was seen: fields of view and attitude of a sensor above flat ground. Angles are degrees; azimuths
// count clockwise from north.
#pragma once

namespace kscli {

struct ViewGeometry {
    int width = 1;
    int height = 1;
    double left = 0;          // from the axis of the sensor to the outer edge of the first column
    double right = 0;         // ... of the last column
    bool frame = false;       // lines have angles of their own, the first one looks ahead
    double fore = 0;          // to the outer edge of the first line of a frame
    double aft = 0;           // ... of the last line
    bool evenAngles = false;  // pixels are equal steps in angle, as of a turning mirror; else equal steps on the ground
    double heading = 0;
    double pitch = 0;  // of the axis, positive ahead
    double roll = 0;   // of the axis, positive to the right
};

struct View {
    double zenith = 0;  // not-a-number where the line of sight misses the ground
    /// Of the sensor, seen from the ground, as the sun's; not-a-number straight below the sensor.
    double azimuth = 0;
};

/// The view of a pixel's centre; column and line are 0-based.
View viewOf(const ViewGeometry& geometry, int column, int line);

}  // namespace kscli
