// The Boost.Math error policy of every companion routine.
#pragma once

#include <boost/math/policies/policy.hpp>

namespace velkor::companion {

namespace bmp = boost::math::policies;

// Every Boost.Math error condition becomes a returned value instead of an exception: NaN for a
// domain error, +-inf for a pole or an overflow, 0 for an underflow, the last iterate when a
// series or root finder runs out of iterations. Callers check domains before Boost is called, so
// these only back up the explicit guards; no exception can reach an exported function. Promotion
// of double to long double is Boost's default and kept.
using QuietPolicy =
    bmp::policy<bmp::domain_error<bmp::ignore_error>, bmp::pole_error<bmp::ignore_error>,
                bmp::overflow_error<bmp::ignore_error>, bmp::underflow_error<bmp::ignore_error>,
                bmp::denorm_error<bmp::ignore_error>, bmp::evaluation_error<bmp::ignore_error>,
                bmp::rounding_error<bmp::ignore_error>,
                bmp::indeterminate_result_error<bmp::ignore_error>>;

}  // namespace velkor::companion
