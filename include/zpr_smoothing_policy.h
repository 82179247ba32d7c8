/**
 * @file
 * @brief Framehold: a smoothing level for every frame, chosen by how the camera moves.
 *
 * One level suits one kind of motion: a high one holds the picture still while the camera is held
 * or carried, but in a pan the virtual camera falls behind until it meets the crop limit, and then
 * the shake of the hand comes through. The policy keeps the level of ZPR_Param::smoothingLevel while
 * that is best, lowers it as a pan begins and raises it again as the pan ends. It needs nothing but
 * what the library is given: copies of the samples, and the frames' times.
 *
 * @code
 * ZPR_SmoothingPolicy policy;
 * ZPR_Param update = param;   the parameters that ZPR_Init was given
 * ZPR_StartSmoothingPolicy(&policy, &param);
 * for (each frame) {
 *     for (every sample up to the end of the frame's readout) {
 *         ZPR_SetSensorData(handle, &sample);
 *         ZPR_FeedSmoothingPolicy(&policy, &sample);
 *     }
 *     update.smoothingLevel = ZPR_ChooseSmoothingLevel(&policy, time);
 *     ZPR_Stabilize(handle, time, &input, &output, &update);
 * }
 * @endcode
 *
 * All of it is in this header: it exports nothing, allocates nothing and keeps its state in one
 * record of 17 KB. The same calls give the same levels on every machine but for what the rounding
 * of its mathematical functions changes. A record is used by one thread at a time.
 */
#ifndef ZPR_SMOOTHING_POLICY_H
#define ZPR_SMOOTHING_POLICY_H

#include "zpr_framehold.h"

#include <math.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Sizes of the record. */
enum {
    ZPR_POLICY_SLOTS = 512,  /**< how far samples are remembered, in hundredths of a second */
    ZPR_POLICY_FRAMES = 256, /**< longest delay in frames, and one */
    ZPR_POLICY_AHEAD = 64    /**< coming frames that are looked at */
};

/**
 * @brief State of a policy. ZPR_StartSmoothingPolicy fills it in; its members are its own.
 *
 * Angles are rotation vectors in device axes, in radians.
 */
typedef struct ZPR_SmoothingPolicy {
    int32_t strongest;     /**< level while the camera is held or carried */
    int32_t level;         /**< chosen last */
    int32_t delayFrames;   /**< of the instance */
    int32_t sampleType;    /**< type of the samples that count; 3 stands for 3 and 4 */
    double timeOffset;     /**< of the instance */
    double readoutTime;    /**< of the instance */
    double shownHalf[2];   /**< half the shown width and height, over the focal length */
    double inputHalf[2];   /**< half the input's */
    int32_t hasSample;     /**< 1 once a sample was fed */
    int32_t hasFrame;      /**< 1 once a frame was shown */
    int64_t slot;          /**< hundredths of a second that the latest sample reached */
    double newest;         /**< time of the latest sample */
    double orientation[4]; /**< latest one, for samples of orientations */
    double turned[3];      /**< sum of all turns up to the latest sample */
    double turnedAt[ZPR_POLICY_SLOTS][3]; /**< the same at each hundredth of a second */
    double times[ZPR_POLICY_FRAMES];      /**< of the frames in the delay ring */
    uint32_t framesIn;                    /**< frames taken */
    int32_t sinceChange;                  /**< frames since the level changed */
    double shownTime;                     /**< of the frame shown last */
    double turnedShown[3];                /**< sum of turns up to it */
    double period;                        /**< seconds from one frame to the next */
    double behind[3]; /**< device's orientation seen from the virtual camera's */
    double step[3];   /**< latest turn of the virtual camera */
    double trend[3];  /**< the device's turns, low-passed */
    double unrest[3]; /**< mean square of what that takes away */
} ZPR_SmoothingPolicy;

/**
 * @brief Starts a policy, or starts it over: before the first frame and after ZPR_Reset.
 *
 * @param[out] policy  filled in
 * @param[in] param    what ZPR_Init is given; its smoothingLevel is the strongest that is chosen.
 *     With more than 255 delayed frames that level is chosen for every frame.
 * @return ZPR_ERR_INVALID_PARAM, with nothing written, if `policy` or `param` is null or the image,
 *         fieldOfView or cropPercent are not above 0; else ZPR_OK
 */
static inline int ZPR_StartSmoothingPolicy(ZPR_SmoothingPolicy* policy, const ZPR_Param* param) {
    const double half_degree = 0.008726646259971648; /* in radians */
    const double first_unrest = 3.0e-5;
    double focal, across;
    int i;
    if (!policy || !param || param->inputImage.width <= 0 || param->inputImage.height <= 0 ||
        !(param->fieldOfView > 0.0) || param->cropPercent <= 0) {
        return ZPR_ERR_INVALID_PARAM;
    }
    across = (double)param->inputImage.width;
    if (param->fieldOfViewMode == ZPR_FOV_HEIGHT) across = (double)param->inputImage.height;
    if (param->fieldOfViewMode == ZPR_FOV_DIAGONAL) {
        across = sqrt(across * across +
                      (double)param->inputImage.height * (double)param->inputImage.height);
    }
    focal = param->fieldOfViewMode == ZPR_FOV_FOCAL_LENGTH
                ? param->fieldOfView
                : across / 2.0 / tan(param->fieldOfView * half_degree);
    memset(policy, 0, sizeof *policy);
    policy->strongest = param->smoothingLevel;
    if (policy->strongest < 1) policy->strongest = 1;
    if (policy->strongest > 10) policy->strongest = 10;
    policy->level = policy->strongest;
    policy->delayFrames = param->delayFrames;
    policy->sampleType = ZPR_SENSOR_RATE_1;
    if (param->sensorMask & ZPR_SENSOR_BIT(ZPR_SENSOR_ROTATION_2)) {
        policy->sampleType = ZPR_SENSOR_ROTATION_2;
    }
    if (param->sensorMask & ZPR_SENSOR_BIT(ZPR_SENSOR_ROTATION_1)) {
        policy->sampleType = ZPR_SENSOR_ROTATION_1;
    }
    policy->timeOffset = param->timeOffset;
    policy->readoutTime = param->readoutTime;
    policy->inputHalf[0] = (double)param->inputImage.width / 2.0 / focal;
    policy->inputHalf[1] = (double)param->inputImage.height / 2.0 / focal;
    for (i = 0; i < 2; ++i) {
        policy->shownHalf[i] = policy->inputHalf[i] * (double)param->cropPercent / 100.0;
    }
    policy->period = 1.0 / 30.0;
    /* Until the camera's unrest is known, much of it is expected: no level falls by mistake. */
    for (i = 0; i < 3; ++i) policy->unrest[i] = first_unrest;
    return ZPR_OK;
}

/** @cond internal */

/** Takes the turn since the sample before, which was even over that time. */
static inline void ZPR_PolicyTurn(ZPR_SmoothingPolicy* policy, double time, const double turn[3]) {
    const double hundredths = floor(time * 100.0);
    const double span = time - policy->newest;
    const int64_t slot = (int64_t)hundredths;
    int64_t k;
    int i;
    for (k = policy->slot + 1; k <= slot; ++k) {
        const double share = ((double)k / 100.0 - policy->newest) / span;
        for (i = 0; i < 3; ++i) {
            policy->turnedAt[k & (ZPR_POLICY_SLOTS - 1)][i] = policy->turned[i] + turn[i] * share;
        }
    }
    for (i = 0; i < 3; ++i) policy->turned[i] += turn[i];
    policy->newest = time;
    policy->slot = slot;
}

/** Finds the sum of turns up to `time`; before and after what is remembered, at its ends. */
static inline void ZPR_PolicyTurnedAt(const ZPR_SmoothingPolicy* policy, double time,
                                      double turned[3]) {
    const double* from;
    const double* to = policy->turned;
    double place = time * 100.0;
    double length = 1.0;
    double share;
    const double oldest = (double)(policy->slot - (ZPR_POLICY_SLOTS - 2));
    int64_t k;
    int i;
    if (time >= policy->newest) {
        for (i = 0; i < 3; ++i) turned[i] = policy->turned[i];
        return;
    }
    if (place < oldest) place = oldest;
    k = (int64_t)floor(place);
    from = policy->turnedAt[k & (ZPR_POLICY_SLOTS - 1)];
    if (k < policy->slot) {
        to = policy->turnedAt[(k + 1) & (ZPR_POLICY_SLOTS - 1)];
    } else {
        length = policy->newest * 100.0 - (double)k;
    }
    share = length > 0.0 ? (place - (double)k) / length : 0.0;
    for (i = 0; i < 3; ++i) turned[i] = from[i] + (to[i] - from[i]) * share;
}

/** Turns of the device: at[0] that of the frame that is shown, then those of the coming frames. */
typedef struct ZPR_PolicyTurns {
    double at[ZPR_POLICY_AHEAD + 1][3]; /**< radians */
    int32_t ahead;                      /**< coming frames that are known */
} ZPR_PolicyTurns;

/** Returns the share of the margin that a frame uses, by the corners of what it shows. */
static inline double ZPR_PolicyMargin(const ZPR_SmoothingPolicy* policy, const double behind[3],
                                      const double turn[3]) {
    const double rows = policy->readoutTime / policy->period;
    double used = 0.0;
    int corner, i;
    for (corner = 0; corner < 4; ++corner) {
        const double x = (corner & 1) ? policy->shownHalf[0] : -policy->shownHalf[0];
        const double y = (corner & 2) ? policy->shownHalf[1] : -policy->shownHalf[1];
        /* The last row is read when the device has turned on. */
        const double later = (corner & 2) ? rows : 0.0;
        const double a = behind[0] + later * turn[0];
        const double b = behind[1] + later * turn[1];
        const double c = behind[2] + later * turn[2];
        const double depth = 1.0 - a * x + b * y;
        double at[2];
        at[0] = (x - c * y + a) / depth;
        at[1] = (y - b + c * x) / depth;
        for (i = 0; i < 2; ++i) {
            const double margin = policy->inputHalf[i] - policy->shownHalf[i];
            const double share = (fabs(at[i]) - policy->shownHalf[i]) / (margin + 1e-9);
            if (share > used) used = share;
        }
    }
    return used;
}

/** Moves `behind` into the margin, in proportion. */
static inline void ZPR_PolicyLimit(const ZPR_SmoothingPolicy* policy, double behind[3],
                                   const double turn[3]) {
    const double used = ZPR_PolicyMargin(policy, behind, turn);
    int i;
    for (i = 0; i < 3 && used > 1.0; ++i) behind[i] /= used;
}

/** Share of the virtual camera's deviation that it keeps from frame to frame. */
static inline double ZPR_PolicyKept(int32_t level) { return 0.8 + 0.02 * (double)(level - 1); }

/**
 * Predicts how far the device is from the virtual camera after a frame with this level, as the
 * library finds it: filtered, limited, and pulled by the first of the coming frames that would
 * leave the margin.
 */
static inline void ZPR_PolicyPredict(const ZPR_SmoothingPolicy* policy, int32_t level,
                                     const ZPR_PolicyTurns* turns, double behind[3]) {
    const double kept = ZPR_PolicyKept(level);
    /* In a full ring the library's look-ahead ends before the newest frame, then starts over. */
    const int32_t waiting = policy->delayFrames;
    const int32_t ahead = turns->ahead;
    const int32_t first = waiting > 0 && waiting <= ahead ? waiting - 1 : ahead;
    const int32_t last = waiting > 0 && waiting <= ahead ? waiting + ahead : ahead;
    double probe[3], gone[3] = {0.0, 0.0, 0.0};
    int32_t n;
    int i;
    for (i = 0; i < 3; ++i) behind[i] = kept * (policy->behind[i] + turns->at[0][i]);
    ZPR_PolicyLimit(policy, behind, turns->at[0]);
    for (i = 0; i < 3; ++i) probe[i] = behind[i];
    for (n = 1; n <= last; ++n) {
        const double* turn = turns->at[n <= first ? n : n - waiting];
        double used;
        for (i = 0; i < 3; ++i) {
            if (n == first + 1) {
                probe[i] -= gone[i];
                gone[i] = 0.0;
            } else {
                probe[i] += turn[i];
                gone[i] += turn[i];
            }
            probe[i] *= kept;
        }
        used = ZPR_PolicyMargin(policy, probe, turn);
        if (used > 1.0) {
            for (i = 0; i < 3; ++i) {
                behind[i] -= (gone[i] - probe[i] / used + behind[i]) / (double)(n + 1);
            }
            ZPR_PolicyLimit(policy, behind, turns->at[0]);
            return;
        }
    }
}

/** Weight of a device axis: turns about the third move the picture less. */
static inline double ZPR_PolicyWeight(int axis) { return axis < 2 ? 1.0 : 0.4; }

/** Follows the device's turns: their trend, and how much they differ from it. */
static inline void ZPR_PolicyFollow(ZPR_SmoothingPolicy* policy, const double turn[3],
                                    double trend_seconds, double unrest_seconds) {
    const double trend_share = 1.0 - exp(-policy->period / trend_seconds);
    const double unrest_share = 1.0 - exp(-policy->period / unrest_seconds);
    int i;
    for (i = 0; i < 3; ++i) {
        double rest;
        policy->trend[i] += trend_share * (turn[i] - policy->trend[i]);
        rest = (turn[i] - policy->trend[i]) * ZPR_PolicyWeight(i);
        policy->unrest[i] += unrest_share * (rest * rest - policy->unrest[i]);
    }
}

/**
 * Chooses without a look ahead. The virtual camera should move as the trend of the device does,
 * which a share of their distance gives it; the more restless the device, the less that is worth.
 */
static inline void ZPR_PolicyChooseNow(ZPR_SmoothingPolicy* policy, const double turn[3]) {
    const double none[3] = {0.0, 0.0, 0.0};
    const double unsure = 0.0034; /* radians: what smaller distances say is not used */
    double behind[3];
    double lag[3], kept;
    double along = 0.0, square = unsure * unsure;
    double share = 0.0, wanted, used, fall;
    int i;
    ZPR_PolicyFollow(policy, turn, 0.16, 1.13);
    for (i = 0; i < 3; ++i) {
        const double weight = ZPR_PolicyWeight(i);
        behind[i] = policy->behind[i] + turn[i];
        along += weight * weight * policy->trend[i] * behind[i];
        square += weight * weight * behind[i] * behind[i] + 101.0 * policy->unrest[i];
    }
    if (along > 0.0) share = 1.32 * along / square;
    used = ZPR_PolicyMargin(policy, behind, none);
    if (used > 0.47) share += 0.0385 * (used - 0.47);
    wanted = 11.0 - 50.0 * share;
    if (wanted < 1.0) wanted = 1.0;
    if (wanted > (double)policy->strongest) wanted = (double)policy->strongest;
    /* A camera so slow that its level leaves enough of the margin is no pan. */
    kept = ZPR_PolicyKept(policy->strongest);
    for (i = 0; i < 3; ++i) lag[i] = policy->trend[i] * kept / (1.0 - kept);
    if (ZPR_PolicyMargin(policy, lag, none) < 0.5) wanted = (double)policy->strongest;
    /* A level falls at once, but not for little; it rises when the camera has nearly caught up. */
    fall = (double)policy->level - wanted - 1.37;
    if (fall > (policy->level == policy->strongest ? 0.97 : 0.0)) {
        policy->level -= fall > 1.0 ? 2 : 1;
        policy->sinceChange = 0;
    } else if (wanted > (double)policy->level + 0.54 && used < 0.16 && policy->sinceChange >= 3) {
        ++policy->level;
        policy->sinceChange = 0;
    }
    if (policy->level < 1) policy->level = 1;
}

/**
 * Chooses with the coming turns known. The library then looks ahead, too: what each level would do
 * is predicted, and the one is taken that moves the virtual camera most evenly along the trend.
 */
static inline void ZPR_PolicyChooseAhead(ZPR_SmoothingPolicy* policy,
                                         const ZPR_PolicyTurns* turns) {
    const double unsure = 0.0043; /* radians */
    double cost[11] = {0.0};      /* by level */
    double restless = unsure * unsure;
    int32_t level, best = 1;
    int i;
    ZPR_PolicyFollow(policy, turns->at[turns->ahead < 4 ? turns->ahead : 4], 0.173, 0.72);
    for (i = 0; i < 3; ++i) restless += 98.0 * policy->unrest[i];
    for (level = 1; level <= policy->strongest; ++level) {
        const double share = 1.0 - ZPR_PolicyKept(level);
        double after[3];
        ZPR_PolicyPredict(policy, level, turns, after);
        cost[level] = restless * share * share;
        for (i = 0; i < 3; ++i) {
            const double weight = ZPR_PolicyWeight(i) * ZPR_PolicyWeight(i);
            const double step = policy->behind[i] + turns->at[0][i] - after[i];
            const double off = step - 0.86 * policy->trend[i];
            const double change = step - policy->step[i];
            cost[level] += weight * (off * off + 0.4 * change * change);
        }
        if (cost[level] <= cost[best]) best = level;
    }
    /* Leaving the strongest level is decided by the prediction alone; later changes have to be
       worth it, since each of them is felt. */
    if (policy->level < policy->strongest && cost[best] > 0.8 * cost[policy->level]) return;
    if (best < policy->level) {
        --policy->level;
        policy->sinceChange = 0;
    } else if (best > policy->level && policy->sinceChange >= 3) {
        policy->level = best;
        policy->sinceChange = 0;
    }
}

/** @endcond */

/**
 * @brief Takes a copy of a sample that ZPR_SetSensorData was given.
 *
 * Counted are those that the library takes orientations from: rates, or with type 5 or 6 enabled
 * orientations. Others are ignored, like samples that are not later than the one before, or not
 * finite. Samples may be as far ahead as the library takes them, with the delay together at most
 * 5 seconds.
 *
 * @param[in,out] policy  the policy
 * @param[in] sample      the sample; not needed after the call
 */
static inline void ZPR_FeedSmoothingPolicy(ZPR_SmoothingPolicy* policy,
                                           const ZPR_SensorData* sample) {
    const int rates = policy->sampleType == ZPR_SENSOR_RATE_1;
    const double span = sample->timestamp - policy->newest;
    const double* value = sample->value;
    double turn[3];
    int i;
    if (sample->type != policy->sampleType && !(rates && sample->type == ZPR_SENSOR_RATE_2)) return;
    for (i = 0; i < (rates ? 3 : 4); ++i) {
        if (!(fabs(value[i]) < 1e6)) return;
    }
    if (!(fabs(sample->timestamp) < 1e12) || (policy->hasSample && !(span > 0.0))) return;
    if (rates) {
        for (i = 0; i < 3; ++i) turn[i] = value[i] * span;
    } else {
        const double* q = policy->orientation;
        const double w = q[3] * value[3] + q[0] * value[0] + q[1] * value[1] + q[2] * value[2];
        const double twice = w < 0.0 ? -2.0 : 2.0;
        turn[0] = twice * (q[3] * value[0] - q[0] * value[3] - q[1] * value[2] + q[2] * value[1]);
        turn[1] = twice * (q[3] * value[1] - q[1] * value[3] - q[2] * value[0] + q[0] * value[2]);
        turn[2] = twice * (q[3] * value[2] - q[2] * value[3] - q[0] * value[1] + q[1] * value[0]);
        for (i = 0; i < 4; ++i) policy->orientation[i] = value[i];
    }
    if (!policy->hasSample || span > 5.0) {
        /* Nothing is known of the time before, or too little. */
        policy->hasSample = 1;
        policy->hasFrame = 0;
        policy->newest = sample->timestamp;
        policy->slot = (int64_t)floor(sample->timestamp * 100.0);
        for (i = 0; i < ZPR_POLICY_SLOTS; ++i) {
            memcpy(policy->turnedAt[i], policy->turned, sizeof policy->turned);
        }
        return;
    }
    ZPR_PolicyTurn(policy, sample->timestamp, turn);
}

/**
 * @brief Returns the level for the next frame, for the `update` of ZPR_Stabilize.
 *
 * Call it once for every frame given to ZPR_Stabilize, while the delay ring fills, too, with the
 * samples that the library has. Not for drained frames: they go on with the level chosen last.
 *
 * @param[in,out] policy  the policy
 * @param[in] timestamp   the frame's, as ZPR_Stabilize gets it
 * @return the level: 1 to the one that the policy was started with
 */
static inline int32_t ZPR_ChooseSmoothingLevel(ZPR_SmoothingPolicy* policy, double timestamp) {
    ZPR_PolicyTurns turns;
    double before[3], now[3], time, apart, reach;
    uint32_t oldest;
    int32_t n;
    int i;
    if (policy->delayFrames < 0 || policy->delayFrames >= ZPR_POLICY_FRAMES) return policy->level;
    time = timestamp + policy->timeOffset;
    if (!(fabs(time) < 1e12)) time = 0.0;
    policy->times[policy->framesIn % ZPR_POLICY_FRAMES] = time;
    oldest = policy->framesIn - (uint32_t)policy->delayFrames;
    if (policy->framesIn++ < (uint32_t)policy->delayFrames) return policy->level;
    if (!policy->hasSample) return policy->level;
    /* The frame that is shown now. */
    time = policy->times[oldest % ZPR_POLICY_FRAMES];
    ZPR_PolicyTurnedAt(policy, time, now);
    apart = time - policy->shownTime;
    for (i = 0; i < 3; ++i) before[i] = policy->turnedShown[i];
    for (i = 0; i < 3; ++i) policy->turnedShown[i] = now[i];
    policy->shownTime = time;
    if (!policy->hasFrame) {
        policy->hasFrame = 1;
        return policy->level;
    }
    if (apart > 0.001 && apart < 0.2) policy->period = apart;
    for (i = 0; i < 3; ++i) turns.at[0][i] = now[i] - before[i];
    reach = (policy->newest - policy->readoutTime - time) / policy->period;
    turns.ahead = 0;
    if (reach >= 1.0) {
        turns.ahead = reach < (double)ZPR_POLICY_AHEAD ? (int32_t)reach : (int32_t)ZPR_POLICY_AHEAD;
    }
    for (n = 1; n <= turns.ahead; ++n) {
        double next[3];
        ZPR_PolicyTurnedAt(policy, time + (double)n * policy->period, next);
        for (i = 0; i < 3; ++i) {
            turns.at[n][i] = next[i] - now[i];
            now[i] = next[i];
        }
    }
    ++policy->sinceChange;
    if (turns.ahead > 0) {
        ZPR_PolicyChooseAhead(policy, &turns);
    } else {
        ZPR_PolicyChooseNow(policy, turns.at[0]);
    }
    ZPR_PolicyPredict(policy, policy->level, &turns, before);
    for (i = 0; i < 3; ++i) {
        policy->step[i] = policy->behind[i] + turns.at[0][i] - before[i];
        policy->behind[i] = before[i];
    }
    return policy->level;
}

#ifdef __cplusplus
}
#endif

#endif /* ZPR_SMOOTHING_POLICY_H */
