// Sums of whole pictures, edges in profiles, and the number of threads.

#include "arguments.h"
#include "arrays.h"
#include "python_types.h"

#include <array>
#include <cstring>
#include <string>
#include <vector>

namespace kip_python {
namespace {

template <auto Sums>
PyObject *sumsOf(const Signature &signature, const Passed &passed)
{
    std::array<PyObject *, 1> given;
    signature.bind(passed, given);
    const Picture picture = pictureFrom(given[0], "image");
    if (picture.element != Element::u8)
        throw py::type_error("image has dtype uint16; sums of whole rows and columns are for uint8");
    const std::vector<uint32_t> sums = [&] {
        const WithoutInterpreter released;
        return Sums(picture.view<const uint8_t>());
    }();
    py::object array = newArray(Element::u32, {static_cast<Py_intptr_t>(sums.size())});
    std::memcpy(dataOf<uint32_t>(array), sums.data(), sums.size() * sizeof(uint32_t));
    return array.release().ptr();
}

PyObject *rowSums(PyObject *, const Passed &passed)
{
    static const Signature kSignature("row_sums", {"image"}, 1, 1);
    return sumsOf<kip::rowSums<kip::ImageView<const uint8_t>>>(kSignature, passed);
}

PyObject *columnSums(PyObject *, const Passed &passed)
{
    static const Signature kSignature("column_sums", {"image"}, 1, 1);
    return sumsOf<kip::columnSums<kip::ImageView<const uint8_t>>>(kSignature, passed);
}

std::vector<double> numbersFrom(py::handle given, const char *name)
{
    using Numbers = py::array_t<double, py::array::c_style | py::array::forcecast>;
    const py::array array = py::array::ensure(given);
    if (!array || std::string("biuf").find(array.dtype().kind()) == std::string::npos) {
        PyErr_Clear();
        throw py::type_error(std::string(name) + " is an array of numbers or a kip.MeanProfile, not " +
                             std::string(py::repr(array ? array.dtype() : given)));
    }
    if (array.ndim() != 1)
        throw py::value_error(std::string(name) + " has " + std::to_string(array.ndim()) +
                              " dimensions; it is a row of numbers, one for each column");
    const Numbers numbers(array);
    return {numbers.data(), numbers.data() + numbers.size()};
}

kip::MeanProfile profileFrom(PyObject *given, const kip::AffineRect &rect)
{
    const auto handle = py::handle(given);
    if (!py::isinstance(handle, pythonTypes().meanProfile)) {
        kip::MeanProfile profile{numbersFrom(handle, "profile"), {}, rect};
        profile.coverage.assign(profile.means.size(), 1);
        return profile;
    }
    kip::MeanProfile profile{numbersFrom(handle.attr("means"), "profile.means"),
                             numbersFrom(handle.attr("coverage"), "profile.coverage"), rect};
    if (profile.means.size() != profile.coverage.size())
        throw py::value_error("profile has " + std::to_string(profile.means.size()) + " means and " +
                              std::to_string(profile.coverage.size()) + " numbers of coverage");
    return profile;
}

kip::EdgeOptions optionsFrom(const std::array<PyObject *, 7> &given)
{
    static const Choice kPolarities("polarity", {"any", "rising", "falling"});
    kip::EdgeOptions options;
    if (given[1])
        options.sigma = numberFrom(given[1], "sigma");
    if (given[2])
        options.threshold = numberFrom(given[2], "threshold");
    if (given[3]) {
        constexpr std::array kKinds{kip::Polarity::any, kip::Polarity::rising, kip::Polarity::falling};
        options.polarity = kKinds.at(kPolarities.numberOf(given[3]));
    }
    if (given[4])
        options.minDistance = numberFrom(given[4], "min_distance");
    if (given[5])
        options.minCoverage = numberFrom(given[5], "min_coverage");
    return options;
}

PyObject *findEdges(PyObject *, const Passed &passed)
{
    static const Signature kSignature(
        "find_edges", {"profile", "sigma", "threshold", "polarity", "min_distance", "min_coverage", "rect"}, 1, 1);
    std::array<PyObject *, 7> given;
    kSignature.bind(passed, given);
    const kip::EdgeOptions options = optionsFrom(given);
    const bool placed = isGiven(given[6]);
    const kip::MeanProfile profile =
        profileFrom(given[0], placed ? rectFrom(given[6]) : kip::AffineRect({0, 0, 1, 0, 0, 1}));
    const std::vector<kip::Edge> edges = [&] {
        const WithoutInterpreter released;
        return kip::findEdges(profile, options);
    }();
    py::list list;
    for (const kip::Edge &edge : edges) {
        const py::object point = placed ? py::object(py::make_tuple(edge.client.x, edge.client.y)) : py::none();
        list.append(pythonTypes().edge(edge.position, edge.contrast, point));
    }
    return list.release().ptr();
}

PyObject *setThreads(PyObject *, const Passed &passed)
{
    static const Signature kSignature("set_threads", {"n", "split_all"}, 1, 1);
    std::array<PyObject *, 2> given;
    kSignature.bind(passed, given);
    const int32_t count = integerFrom(given[0], "n");
    const bool splitAll = isGiven(given[1]) && integerFrom(given[1], "split_all") != 0;
    {
        const WithoutInterpreter released;
        kip::setThreads(count);
        kip::setSplitAll(splitAll);
    }
    return py::none().release().ptr();
}

PyMethodDef kRowSums = method<rowSums>("row_sums", R"(row_sums(image)
--

Adds up the pixels of each row.

Args:
    image: grey picture, shape (height, width), uint8, any row stride.

Returns:
    Array of shape (height,), uint32; exact up to 16,843,009 pixels in a row, beyond that modulo 2**32.

Raises:
    TypeError, ValueError: an array of the wrong kind, dtype, shape or layout.)");

PyMethodDef kColumnSums = method<columnSums>("column_sums", R"(column_sums(image)
--

Adds up the pixels of each column.

Args:
    image: grey picture, shape (height, width), uint8, any row stride.

Returns:
    Array of shape (width,), uint32; exact up to 16,843,009 pixels in a column, beyond that modulo 2**32.

Raises:
    TypeError, ValueError: an array of the wrong kind, dtype, shape or layout.)");

PyMethodDef kFindEdges = method<findEdges>(
    "find_edges",
    R"(find_edges(profile, *, sigma=1.0, threshold=10.0, polarity='any', min_distance=2.0, min_coverage=0.5, rect=None)
--

Finds the edges in a profile, to fractions of a column: a caliper.

Args:
    profile: MeanProfile, or an array of shape (n,) in grey levels, any real dtype. Sums of kip.project are divided by
        their number of rows first.
    sigma: standard deviation, in columns, of the Gaussian whose derivative finds the edges, from 0.3 to 1000; more of
        it finds fewer edges in noise.
    threshold: the least contrast of an edge, in grey levels, 0 or more.
    polarity: 'rising' (dark to bright along the profile), 'falling', or 'any'.
    min_distance: of edges closer than this many columns only the stronger one is kept.
    min_coverage: columns of which less lies inside the picture tell nothing.
    rect: AffineRect of the profile; edges then carry their point in the picture.

Returns:
    List of Edge(position, contrast, point), by position.

Raises:
    kip.Error: an option out of its range.
    TypeError, ValueError: an argument of the wrong kind or shape.)");

PyMethodDef kSetThreads = method<setThreads>("set_threads", R"(set_threads(n, *, split_all=False)
--

Sets how many threads large transforms are spread over from now on, in this process; results stay the same.

Args:
    n: number of threads, the caller's included; 0, as at the beginning, one for each processor.
    split_all: True spreads large separable and cubic transforms and projections, too. Each thread then takes memory of
        its own for them, which a Sampler keeps.

Raises:
    kip.Error: n is below 0.
    TypeError: n is no integer, or split_all neither True nor False.)");

} // namespace

void addProfiles(py::module_ &module)
{
    for (PyMethodDef *definition : {&kRowSums, &kColumnSums, &kFindEdges, &kSetThreads})
        addFunction(module, *definition);
}

} // namespace kip_python
