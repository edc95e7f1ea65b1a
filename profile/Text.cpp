#include "tessaline/profile.h"

const char* tessaline_profile_text(int result) {
  switch (result) {
    case TESSALINE_PROFILE_OK:
      return "done";
    case TESSALINE_PROFILE_END:
      return "there is no further strip";
    case TESSALINE_PROFILE_ARGUMENT:
      return "an argument is missing, or no layout has points of that size";
    case TESSALINE_PROFILE_MALFORMED:
      return "the strips and their bytes do not fit each other";
    case TESSALINE_PROFILE_CAPACITY:
      return "the strip has more points than the arrays have room";
    case TESSALINE_PROFILE_GEOMETRY:
      return "no frame can lie on a sensor like this";
    case TESSALINE_PROFILE_CALIBRATION:
      return "no head can be calibrated like this";
    case TESSALINE_PROFILE_SENSOR:
      return "the calibration is that of another sensor";
    case TESSALINE_PROFILE_OUTSIDE:
      return "the sensor does not see such a point";
    default:
      return "an unknown result";
  }
}
