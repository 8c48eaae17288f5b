#ifndef KIP_KIP_HPP
#define KIP_KIP_HPP

/**
 * @file
 * kip for C++: images and views, affine rectangles, transforms, projections and edges, as a thin layer of headers over
 * the C functions of <kip/kip.h>, with the same results.
 *
 *     const kip::ImageView source(pixels, width, height, stride);              // no copy
 *     const auto rect = kip::AffineRect::fromCenter({512, 300}, 120, 40, 0.3);
 *     const auto straight = kip::transform(source, rect);                      // kip::Image, 120 x 40
 *     for (const kip::Edge &edge : kip::findEdges(kip::projectMean(source, rect)))
 *         use(edge.client);
 *
 * Failures are exceptions of the class kip::Error. Functions may be called from several threads at once as long as no
 * image, view or sampler that one of them writes is used by another.
 */

#include <kip/cpp/edges.hpp>    // IWYU pragma: export
#include <kip/cpp/error.hpp>    // IWYU pragma: export
#include <kip/cpp/geometry.hpp> // IWYU pragma: export
#include <kip/cpp/image.hpp>    // IWYU pragma: export
#include <kip/cpp/sampler.hpp>  // IWYU pragma: export

#endif
