// Transforms and projections of rectangles, by functions and by the class Sampler.

#include "arguments.h"
#include "arrays.h"
#include "python_types.h"

#include <array>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace kip_python {
namespace {

// What is sampled of a picture, as the caller gave it.
struct Request {
    const kip::AffineRect &rect;
    kip::Mode mode;
    kip::Size size;
};

Request requestFrom(PyObject *rect, PyObject *mode, PyObject *size)
{
    const kip::AffineRect &known = rectFrom(rect);
    const auto number = mode ? static_cast<kip::Mode>(modes().numberOf(mode)) : kip::Mode::bilinear;
    const kip::Size samples = isGiven(size) ? sizeFrom(size, "size") : known.standardSize();
    if (samples.width < 1 || samples.height < 1)
        throw kip::Error(kip_statusSizeBelowOne, "a result of " + std::to_string(samples.width) + " x " +
                                                     std::to_string(samples.height) + " samples");
    return {known, number, samples};
}

kip::Sampler makeSampler(const Request &request)
{
    return kip::Sampler(request.rect, {request.mode, request.size});
}

// What the functions sample with. Each keeps its thread's last sampler, so that a call with the same geometry repeats
// no geometry work; tables for large results are not kept.
class ThreadSampler {
public:
    explicit ThreadSampler(const Request &request) : request_(request) {}

    [[nodiscard]] kip::Size size() const { return request_.size; }

    // The thread's sampler is looked up only here: before and after, another call may come in between, from the
    // destructor of an object of Python.
    template <typename Work>
    void use(Work work) const
    {
        constexpr int64_t kMostSamples = 1 << 20;
        const WithoutInterpreter released;
        if (int64_t{request_.size.width} * request_.size.height > kMostSamples) {
            kip::Sampler large = makeSampler(request_);
            work(large);
            return;
        }
        thread_local std::optional<kip::Sampler> kept; // of each kind of work, which is a type of its own
        if (!kept || kept->mode() != request_.mode || kept->size() != request_.size || kept->rect() != request_.rect)
            kept.emplace(makeSampler(request_));
        work(*kept);
    }

private:
    Request request_;
};

// The class Sampler. Threads that use one at once wait for each other.
class SharedSampler {
public:
    explicit SharedSampler(const Request &request) : sampler_(makeSampler(request)) {}

    [[nodiscard]] kip::AffineRect rect() const { return sampler_.rect(); }
    [[nodiscard]] kip::Mode mode() const { return sampler_.mode(); }
    [[nodiscard]] kip::Size size() const { return sampler_.size(); }

    template <typename Work>
    void use(Work work)
    {
        const WithoutInterpreter released; // first: whoever holds the lock may want the interpreter
        const std::lock_guard lock(mutex_);
        work(sampler_);
    }

private:
    std::mutex mutex_;
    kip::Sampler sampler_;
};

// A result that memory cannot hold is most often that of a rectangle far beyond the picture, and then told as such.
template <typename Owner>
[[noreturn]] void refuseResult(Owner &owner, const Picture &picture, int32_t status)
{
    kip::Overhang over;
    owner.use([&](kip::Sampler &sampler) {
        withPixel(picture.element, [&](auto pixel) { over = sampler.overhang(picture.view<const decltype(pixel)>()); });
    });
    if (!kip::describe(over).empty())
        throw kip::Error(status, "", over);
    throw;
}

template <typename Owner>
PyObject *transformWith(Owner &owner, const Picture &picture, PyObject *out)
{
    py::object array;
    Picture result;
    if (isGiven(out)) {
        result = resultFrom(out, picture.element, owner.size());
        array = py::reinterpret_borrow<py::object>(out);
    } else {
        try {
            result = newPicture(picture.element, owner.size(), array);
        } catch (const py::error_already_set &) {
            refuseResult(owner, picture, kip_statusTransformWouldClip);
        }
    }
    owner.use([&](kip::Sampler &sampler) {
        withPixel(picture.element, [&](auto pixel) {
            using Pixel = decltype(pixel);
            sampler.transformInto(picture.view<const Pixel>(), result.view<Pixel>());
        });
    });
    return array.release().ptr();
}

template <typename Pixel>
py::object arrayOf(const kip::Image<Pixel> &image, Element element)
{
    py::object array;
    const Picture picture = newPicture(element, {image.width(), image.height()}, array);
    const kip::ImageView<Pixel> to = picture.view<Pixel>();
    for (int32_t y = 0; y < image.height(); ++y)
        std::memcpy(to.row(y).data(), image.row(y).data(), image.row(y).size_bytes());
    return array;
}

template <typename Owner>
PyObject *transformClippedWith(Owner &owner, const Picture &picture)
{
    return withPixel(picture.element, [&](auto pixel) {
        using Pixel = decltype(pixel);
        kip::Clipped<Pixel> clipped{};
        owner.use([&](kip::Sampler &sampler) { clipped = sampler.transformClipped(picture.view<const Pixel>()); });
        return py::make_tuple(arrayOf(clipped.image, picture.element), arrayOf(clipped.mask, Element::u8))
            .release()
            .ptr();
    });
}

template <typename Owner>
PyObject *projectWith(Owner &owner, const Picture &picture)
{
    const int32_t width = owner.size().width;
    py::object array;
    try {
        array = newArray(Element::u32, {width});
    } catch (const py::error_already_set &) {
        refuseResult(owner, picture, kip_statusProjectionWouldClip);
    }
    const std::span sums(dataOf<uint32_t>(array), static_cast<size_t>(width));
    owner.use([&](kip::Sampler &sampler) {
        withPixel(picture.element,
                  [&](auto pixel) { sampler.projectInto(picture.view<const decltype(pixel)>(), sums); });
    });
    return array.release().ptr();
}

py::object arrayOf(const std::vector<double> &values)
{
    py::object array = newArray(Element::f64, {static_cast<Py_intptr_t>(values.size())});
    std::memcpy(dataOf<double>(array), values.data(), values.size() * sizeof(double));
    return array;
}

template <typename Owner>
PyObject *projectMeanWith(Owner &owner, const Picture &picture)
{
    std::optional<kip::MeanProfile> profile;
    owner.use([&](kip::Sampler &sampler) {
        withPixel(picture.element,
                  [&](auto pixel) { profile = sampler.projectMean(picture.view<const decltype(pixel)>()); });
    });
    return pythonTypes().meanProfile(arrayOf(profile->means), arrayOf(profile->coverage)).release().ptr();
}

PyObject *transform(PyObject *, const Passed &passed)
{
    static const Signature kSignature("transform", {"image", "rect", "mode", "size", "out"}, 2, 2);
    std::array<PyObject *, 5> given;
    kSignature.bind(passed, given);
    ThreadSampler sampler(requestFrom(given[1], given[2], given[3]));
    const Picture picture = pictureFrom(given[0], "image"); // last, since the others may run code of the caller's
    return transformWith(sampler, picture, given[4]);
}

template <auto Operation>
PyObject *withoutOut(const Signature &signature, const Passed &passed)
{
    std::array<PyObject *, 4> given;
    signature.bind(passed, given);
    ThreadSampler sampler(requestFrom(given[1], given[2], given[3]));
    return Operation(sampler, pictureFrom(given[0], "image"));
}

PyObject *transformClipped(PyObject *, const Passed &passed)
{
    static const Signature kSignature("transform_clipped", {"image", "rect", "mode", "size"}, 2, 2);
    return withoutOut<transformClippedWith<ThreadSampler>>(kSignature, passed);
}

PyObject *project(PyObject *, const Passed &passed)
{
    static const Signature kSignature("project", {"image", "rect", "mode", "size"}, 2, 2);
    return withoutOut<projectWith<ThreadSampler>>(kSignature, passed);
}

PyObject *projectMean(PyObject *, const Passed &passed)
{
    static const Signature kSignature("project_mean", {"image", "rect", "mode", "size"}, 2, 2);
    return withoutOut<projectMeanWith<ThreadSampler>>(kSignature, passed);
}

PyObject *samplerTransform(PyObject *self, const Passed &passed)
{
    static const Signature kSignature("transform", {"image", "out"}, 1, 1);
    std::array<PyObject *, 2> given;
    kSignature.bind(passed, given);
    return transformWith(valueOf<SharedSampler>(self), pictureFrom(given[0], "image"), given[1]);
}

template <auto Operation>
PyObject *ofImage(const Signature &signature, PyObject *self, const Passed &passed)
{
    std::array<PyObject *, 1> given;
    signature.bind(passed, given);
    return Operation(valueOf<SharedSampler>(self), pictureFrom(given[0], "image"));
}

PyObject *samplerTransformClipped(PyObject *self, const Passed &passed)
{
    static const Signature kSignature("transform_clipped", {"image"}, 1, 1);
    return ofImage<transformClippedWith<SharedSampler>>(kSignature, self, passed);
}

PyObject *samplerProject(PyObject *self, const Passed &passed)
{
    static const Signature kSignature("project", {"image"}, 1, 1);
    return ofImage<projectWith<SharedSampler>>(kSignature, self, passed);
}

PyObject *samplerProjectMean(PyObject *self, const Passed &passed)
{
    static const Signature kSignature("project_mean", {"image"}, 1, 1);
    return ofImage<projectMeanWith<SharedSampler>>(kSignature, self, passed);
}

PyMethodDef kTransform =
    method<transform>("transform", R"(transform(image, rect, *, mode='bilinear', size=None, out=None)
--

Straightens a rectangle of a picture that lies inside it.

Args:
    image: grey picture, shape (height, width), uint8 or uint16, any row stride.
    rect: AffineRect, what to sample.
    mode: how a sample is made of the pixels round it: 'nearest', 'bilinear', 'separable' (bilinear in two passes) or
        'cubic' (cubic convolution, a = -0.5). Whole pixels are copied in every mode.
    size: (width, height) of the result; by default rect.standard_size(), one sample for each pixel.
    out: array to write the result to, of its shape and dtype; it must not share memory with image.

Returns:
    Array of shape (height, width), in the dtype of image; `out`, if that is given. A call with the rectangle, mode and
    size of its thread's last one repeats no geometry work.

Raises:
    kip.Error: the rectangle, with the neighbours that its samples need, leaves the picture, and by how much over which
        edge (transform_clipped takes it all the same); its sides are parallel or of no length; the size is below 1;
        out shares memory with image.
    TypeError, ValueError: an argument of the wrong kind, dtype, shape or layout. Nothing is then written.)");

PyMethodDef kTransformClipped =
    method<transformClipped>("transform_clipped", R"(transform_clipped(image, rect, *, mode='bilinear', size=None)
--

Straightens a rectangle that may reach outside its picture, which counts as black there.

Args:
    image, rect, mode, size: as for transform.

Returns:
    (picture, mask): the picture as transform gives it; the mask of the same shape, uint8: 255 where a sample lies
    inside, 0 outside, and a mixture of both at the border.

Raises:
    kip.Error: the rectangle lies wholly outside, by more than 6 pixels; otherwise as for transform.
    TypeError, ValueError: as for transform.)");

PyMethodDef kProject = method<project>("project", R"(project(image, rect, *, mode='bilinear', size=None)
--

Adds up the columns of a rectangle of a picture: its profile along its x side. No picture of it is made.

Args:
    image, rect, mode, size: as for transform. Pictures of uint16 have the modes 'nearest' and 'bilinear' alone.

Returns:
    Array of shape (width,), uint32: the sums, modulo 2**32, of the height samples that transform gives in each column.

Raises:
    kip.Error: the rectangle leaves the picture (project_mean takes it all the same); otherwise as for transform.
    TypeError, ValueError: as for transform.)");

PyMethodDef kProjectMean =
    method<projectMean>("project_mean", R"(project_mean(image, rect, *, mode='bilinear', size=None)
--

The means of the columns of a rectangle that may reach outside its picture, over what lies inside.

Args:
    image, rect, mode, size: as for project.

Returns:
    MeanProfile(means, coverage), two arrays of shape (width,), float64: the means in grey levels, NaN for a column
    without a sample inside, and the share of each column that lies inside, from 0 to 1.

Raises:
    kip.Error: the rectangle lies wholly outside, by more than 6 pixels; otherwise as for project.
    TypeError, ValueError: as for transform.)");

PyMethodDef kSamplerTransform = method<samplerTransform>("transform", R"(transform($self, /, image, *, out=None)
--

Straightens the rectangle. Arguments, result and errors as those of kip.transform.)");

PyMethodDef kSamplerTransformClipped =
    method<samplerTransformClipped>("transform_clipped", R"(transform_clipped($self, /, image)
--

Straightens the rectangle, which may reach outside. Arguments, result and errors as those of kip.transform_clipped.)");

PyMethodDef kSamplerProject = method<samplerProject>("project", R"(project($self, /, image)
--

Adds up the columns of the rectangle. Arguments, result and errors as those of kip.project.)");

PyMethodDef kSamplerProjectMean = method<samplerProjectMean>("project_mean", R"(project_mean($self, /, image)
--

Means of the columns of the rectangle. Arguments, result and errors as those of kip.project_mean.)");

constexpr const char *kSamplerText =
    R"(Samples the same rectangle of many pictures, and keeps its geometry from one to the next.

Args:
    rect: AffineRect, what to sample.
    mode: 'nearest', 'bilinear', 'separable' or 'cubic', as for kip.transform.
    size: (width, height) of a result; by default rect.standard_size().

Pictures may differ in size, dtype and layout. Threads that use one at once wait for each other; give each its own.
Samplers can be pickled.

Raises:
    kip.Error: the size is below 1.
    TypeError, ValueError: an argument of the wrong kind.)";

std::unique_ptr<SharedSampler> newSampler(const py::args &arguments, const py::kwargs &keywords)
{
    static const Signature kSignature("Sampler", {"rect", "mode", "size"}, 1, 1);
    std::vector<PyObject *> values;
    for (const py::handle argument : arguments)
        values.push_back(argument.ptr());
    py::list names;
    for (const auto &[name, value] : keywords) {
        names.append(name);
        values.push_back(value.ptr());
    }
    std::array<PyObject *, 3> given;
    kSignature.bind({values.data(), static_cast<Py_ssize_t>(arguments.size()), py::tuple(names).ptr()}, given);
    return std::make_unique<SharedSampler>(requestFrom(given[0], given[1], given[2]));
}

py::tuple sizeOf(const SharedSampler &sampler)
{
    const kip::Size size = sampler.size();
    return py::make_tuple(size.width, size.height);
}

py::str modeOf(const SharedSampler &sampler)
{
    return modes().nameOf(static_cast<uint32_t>(sampler.mode()));
}

} // namespace

void addSampling(py::module_ &module)
{
    for (PyMethodDef *definition : {&kTransform, &kTransformClipped, &kProject, &kProjectMean})
        addFunction(module, *definition);

    py::class_<SharedSampler> type(module, "Sampler", py::is_final(), kSamplerText);
    type.attr("__module__") = "kip";
    for (PyMethodDef *definition :
         {&kSamplerTransform, &kSamplerTransformClipped, &kSamplerProject, &kSamplerProjectMean})
        addMethod(type, *definition);
    const auto rectOf = [](const SharedSampler &sampler) { return sampler.rect(); };
    type.def(py::init(&newSampler), "__init__(self, rect, *, mode='bilinear', size=None)\n--\n\n");
    type.def_property_readonly("rect", rectOf, "The AffineRect that is sampled.");
    type.def_property_readonly("mode", modeOf, "The mode's name.");
    type.def_property_readonly("size", sizeOf, "(width, height) of a result.");
    type.def("__repr__", [rectOf](const SharedSampler &sampler) {
        return py::str("kip.Sampler({!r}, mode={!r}, size={!r})")
            .format(rectOf(sampler), modeOf(sampler), sizeOf(sampler));
    });
    type.def(py::pickle(
        [rectOf](const SharedSampler &sampler) {
            return py::make_tuple(rectOf(sampler), modeOf(sampler), sizeOf(sampler));
        },
        [](const py::tuple &state) {
            if (state.size() != 3)
                throw py::value_error("the state of a Sampler is its rect, mode and size");
            const py::object rect = state[0], mode = state[1], size = state[2];
            return std::make_unique<SharedSampler>(requestFrom(rect.ptr(), mode.ptr(), size.ptr()));
        }));
}

} // namespace kip_python
