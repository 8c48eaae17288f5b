#ifndef KIP_CPP_ERROR_HPP
#define KIP_CPP_ERROR_HPP

/**
 * @file
 * What a call of the C++ interface throws.
 */

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <system_error>

#include <kip/kip.h>

/** kip for C++. */
namespace kip {

/** A status of the C functions as an error code: `error.code() == kip::Status{kip_statusTransformWouldClip}`. */
enum class Status : int32_t {};

namespace detail {

class StatusCategory final : public std::error_category {
public:
    const char *name() const noexcept override { return "kip"; }
    std::string message(int status) const override
    {
        return std::string(kprt_statusText(status)) + " (" + kprt_statusName(status) + ')';
    }
};

} // namespace detail

/** The category of the library's error codes. A message is a status's text and, in brackets, its name. */
inline const std::error_category &category() noexcept
{
    static const detail::StatusCategory instance;
    return instance;
}

/** Makes an error code of a status. */
inline std::error_code make_error_code(Status status) noexcept
{
    return {static_cast<int>(status), category()};
}

/**
 * How far a sampling reaches over each edge of its source, in source pixels; 0 where it does not. It counts what the
 * mode needs round its samples: moved or shrunk by that much, the rectangle would be inside.
 */
struct Overhang {
    double left = 0;   /**< over the left edge */
    double top = 0;    /**< over the top edge */
    double right = 0;  /**< over the right edge */
    double bottom = 0; /**< over the bottom edge */
};

/**
 * A call that failed. what() is one line: what was asked for, how far a rectangle reaches outside its source if that
 * was the matter, and the status with its name. Nothing was written unless the C function's comment says so.
 */
class Error : public std::system_error {
public:
    /**
     * Makes the error of a status.
     *
     * status    a negative status of the C functions.
     * asked     what was asked for, the beginning of what().
     * overhang  how far the rectangle reaches outside, if that is known.
     */
    Error(int32_t status, const std::string &asked, const std::optional<Overhang> &overhang = {})
        : std::system_error(make_error_code(Status{status}), asked), overhang_(overhang)
    {}

    /** The status that the C function returned. */
    int32_t status() const noexcept { return code().value(); }
    /** The status's name, for example "kip_statusTransformWouldClip"; never null, never freed. */
    const char *name() const noexcept { return kprt_statusName(status()); }
    /** What the status means, in a few words; never null, never freed. */
    const char *text() const noexcept { return kprt_statusText(status()); }
    /** How far the rectangle reaches over which edge of its source; empty for other failures. */
    const std::optional<Overhang> &overhang() const noexcept { return overhang_; }

private:
    std::optional<Overhang> overhang_;
};

/** Throws an Error unless a status is 0 or positive; asked is as for Error. */
inline void check(int32_t status, const char *asked)
{
    if (status < 0) [[unlikely]]
        throw Error(status, asked);
}

namespace detail {

// At most two decimals, and none that are 0.
inline std::string inWords(double pixels)
{
    if (!std::isfinite(pixels))
        return "no finite number of";
    std::array<char, 32> text;
    (void)std::snprintf(text.data(), text.size(), pixels < 1e6 ? "%.2f" : "%.3g", pixels);
    std::string number = text.data();
    if (pixels < 1e6) {
        number.erase(number.find_last_not_of('0') + 1);
        if (number.back() == '.')
            number.pop_back();
        if (number == "0")
            number = "less than 0.01";
    }
    return number;
}

} // namespace detail

/** An overhang in words: "12.5 pixels over the left and 3 over the bottom edge". Empty if nothing reaches over. */
inline std::string describe(const Overhang &overhang)
{
    struct Side {
        double pixels;
        const char *name;
    };
    const std::array<Side, 4> sides{
        {{overhang.left, "left"}, {overhang.top, "top"}, {overhang.right, "right"}, {overhang.bottom, "bottom"}}};
    std::string words;
    for (const Side &side : sides) {
        if (side.pixels == 0)
            continue;
        words += words.empty() ? detail::inWords(side.pixels) + " pixels" : " and " + detail::inWords(side.pixels);
        words += std::string(" over the ") + side.name + " edge";
    }
    return words;
}

} // namespace kip

namespace std {

/** Statuses are error codes. */
template <>
struct is_error_code_enum<kip::Status> : true_type {};

} // namespace std

#endif
