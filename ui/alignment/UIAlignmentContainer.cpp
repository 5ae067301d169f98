#include "ui/alignment/UIAlignmentContainer.h"

#include <algorithm>

using Fit = UIAlignmentScene::Fit;

void UIAlignmentContainer::Layout(UISize size) {
    if (m_method == nullptr) {
        return;
    }
    UIAlignmentScene scene;
    scene.measurer = &m_parent;
    scene.frame = m_parent.GetAlignmentFrame();
    scene.frame.size = size;
    m_parent.GetAlignmentChildren(scene.children);
    m_method->Apply(scene);
    for (size_t index = 0; index < scene.children.size(); ++index) {
        m_parent.PlaceAlignmentChild(index, scene.children[index].rect);
    }
}

UISize UIAlignmentContainer::Fit(UIAlignmentScene& scene, UIAlignmentScene::Fit width,
                                 UIAlignmentScene::Fit height) {
    scene.fitWidth = width;
    scene.fitHeight = height;
    m_method->Apply(scene);
    return scene.frame.size;
}

UIIntrinsic UIAlignmentContainer::Measure(int32_t forWidth) {
    UIIntrinsic sizes;
    if (m_method == nullptr) {
        return sizes;
    }
    UIAlignmentScene scene;
    scene.measurer = &m_parent;
    scene.frame = m_parent.GetAlignmentFrame();
    m_parent.GetAlignmentChildren(scene.children);
    sizes.heightFollowsWidth = std::any_of(
        scene.children.begin(), scene.children.end(), [](const UIAlignmentChild& child) {
            return child.intrinsic.heightFollowsWidth || child.hints.heightFollowsWidth;
        });
    if (forWidth >= 0) {
        scene.frame.size.width = forWidth;
        sizes.natural = Fit(scene, Fit::Given, Fit::Natural);
        sizes.min = Fit(scene, Fit::Given, Fit::Minimum);
    } else {
        sizes.natural = Fit(scene, Fit::Natural, Fit::Natural);
        // The least height at the least width would be that of text wrapped at every word.
        sizes.min.height = Fit(scene, Fit::Natural, Fit::Minimum).height;
        sizes.min.width = Fit(scene, Fit::Minimum, Fit::Natural).width;
    }
    sizes.min.width = std::min(sizes.min.width, sizes.natural.width);
    sizes.min.height = std::min(sizes.min.height, sizes.natural.height);
    return sizes;
}
