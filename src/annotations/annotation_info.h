// What a host is told of one annotation (GetVelmoraAnnotationInfo): the
// fields every family shares brought to one record, the families' own words
// for border, fill and text mapped onto it.
#pragma once

#include <cstddef>

#include "annotations/annotation.h"
#include "velmora/velmora.h"

namespace velmora {

// Fills every field of `info` but its size and the two buffers with their
// capacities and lengths.
void DescribeAnnotation(const Annotation& annotation, VelmoraAnnotationInfo* info);

// The text shown with the annotation: a rectangle's or a line's own, a
// picture's attached text; null for the other families.
const AnnotationText* AnnotationShownText(const Annotation& annotation);

}  // namespace velmora
