// SPDX-License-Identifier: Apache-2.0

// Kills the modelled host: takes images of its files while it works, and goes on with one of them.
#include <utility>
#include <vector>

#include "qvhost/ModelledHost.h"
#include "qvhost/Possibilities.h"

namespace qv::fuzz {

// Copies the files at a moment when the recorder does not write. It tries again on its own what it
// could not keep.
Image ModelledHost::stableImage() {
    for (;;) {
        if (host_ == nullptr) {
            return HostFiles::image();
        }
        const auto before = host_->recorder().statistics();
        Image image = HostFiles::image();
        const auto after = host_->recorder().statistics();
        if (!before.since && !after.since && before.commits == after.commits) {
            return image;
        }
    }
}

void ModelledHost::beginImages() {
    knownBefore_ = known_;
    made_.clear();
    startsWith_.reset();
    images_.clear();
    images_.push_back(stableImage());
    const std::lock_guard<std::mutex> lock(mutex_);
    isArmed_ = true;
}

void ModelledHost::addImage() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (isArmed_) {
        images_.push_back(HostFiles::image());
    }
}

void ModelledHost::crashAt(unsigned moment, unsigned tear) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        isArmed_ = false;
    }
    images_.push_back(stableImage());
    const std::vector<Tree> keysAfter = known_.keys;
    const std::size_t index = moment % images_.size();
    const bool isStart = index != 0 && startsWith_ && isDiskGood();
    Image image = std::move(images_[index]);
    if (index == 0) {
        known_ = knownBefore_;
    } else if (index + 1 < images_.size()) {
        Knowledge& known = knownBefore_;
        if (!made_.empty()) {
            widen(known.mayHold, made_);
        }
        widen(known.mayHold, known_.mayHold);
        known.progress = Progress::Unsure;
        // A start tells the record the keys of the file before the plug-in writes. Until then, the
        // record has the older keys, which count if somebody removes the file.
        widen(known.keys, keysAfter);
        if (isStart) {
            // The next start does the same, whatever this one has done.
            known.mustStartWith = startsWith_;
        }
        known_ = std::move(known);
    }
    if (index + 1 < images_.size() && tearFile(image, images_[index + 1], tear)) {
        known_.isTorn = true;
        known_.edits.clear();
        if (isStart) {
            known_.keys = keysAfter;
        }
    }
    images_.clear();
    host_.reset();
    HostFiles::restore(image);
}

// Puts the files between two moments. Returns whether the plug-in wrote then.
bool ModelledHost::tearFile(Image& image, const Image& next, unsigned tear) const {
    constexpr unsigned kBackups = 64;
    constexpr unsigned kMost = 255;
    const std::optional<std::string> old = image.file();
    const std::optional<std::string> recent = next.file();
    if (!recent || old == recent) {
        return false;
    }
    if (!old || image.inode != next.inode) {
        if (tear % 2 != 0) {
            image.setFile(*recent);
        } else {
            image.setNewFile(recent->substr(0, recent->size() * tear / kMost));
        }
        return false;
    }
    check(!isDiskGood() || HostFiles::recordIn(image).contents.file.isBeingWritten,
          "the plug-in saves without a note in the record");
    if (tear < kBackups) {
        image.setBackup(old->substr(0, old->size() * tear / kBackups));
    } else {
        image.setBackup(*old);
        image.setFile(
            mixtureOf(*old, *recent, recent->size() * (tear - kBackups) / (kMost - kBackups)));
    }
    return true;
}

void ModelledHost::crash() {
    const Image image = stableImage();
    host_.reset();
    HostFiles::restore(image);
}

}  // namespace qv::fuzz
