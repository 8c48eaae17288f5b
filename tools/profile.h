#ifndef KIP_TOOLS_PROFILE_H
#define KIP_TOOLS_PROFILE_H

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <vector>

namespace kiptool {

/** One value for each row or column of something, and what is known of it. */
struct Profile {
    std::string axis;             /**< what an element stands for: "column" or "row" */
    std::string quantity;         /**< "sum" or "mean" */
    std::vector<double> values;   /**< one an element */
    std::vector<double> coverage; /**< samples of each element that lie inside the picture; empty: all of them */
    double samples = 0;           /**< samples of an element, inside or not */
    size_t first = 0, end = 0;    /**< the elements from first up to end have a value */
    double length = 0;            /**< of all elements along the axis, in pixels of the picture */
};

/** Where a profile goes. */
struct ProfileOptions {
    std::string out;  /**< -o: .csv or .json; the standard output when empty */
    std::string plot; /**< --plot: .svg; none when empty */
};

/** Adds -o and --plot; options must outlive the command. */
void addProfileOptions(CLI::App &command, ProfileOptions &options);

/** Writes the table and the plot. */
void writeProfile(const ProfileOptions &options, const Profile &profile);

/** A heading, then an element a line; a value that does not exist is empty. */
std::string profileAsCsv(const Profile &profile);

/** One object with the profile's fields; a value that does not exist is null. */
std::string profileAsJson(const Profile &profile);

} // namespace kiptool

#endif
