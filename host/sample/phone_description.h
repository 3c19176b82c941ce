#ifndef HOST_SAMPLE_PHONE_DESCRIPTION_H
#define HOST_SAMPLE_PHONE_DESCRIPTION_H

#include <string>

#include "sample_phone.h"

namespace Zarvo::Fixtures {

// Reads a short JSON description of a phone (see docs/sample-phone.md). Members that the
// description leaves out keep the values of `phone`. An unknown key or a value of the wrong type
// is refused, naming where it is ("users[2].flags"). False with one sentence in error; `phone` is
// then unchanged.
bool LoadSamplePhoneDescription(const std::string &path, SamplePhone &phone, std::string &error);

}  // namespace Zarvo::Fixtures

#endif  // HOST_SAMPLE_PHONE_DESCRIPTION_H
