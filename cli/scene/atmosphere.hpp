// The atmosphere of a made-up scene as a netCDF table, for trying what works on tables of real ones.
#pragma once

#include <string>

#include "scene/scene.hpp"

namespace kscli {

/// Path radiance, spherical albedo and the radiances of a white ground, for several columns of water vapour.
void writeAtmosphere(const Scene& scene, double heightKm, const std::string& name);

}  // namespace kscli
