"""The noise's generator: seeds, its state in numpy's form, copies, threads."""

import concurrent.futures
import copy
import pickle

import numpy as np
import pytest

from quen_shs import CentreOfGravity, Simulator, run_loop, score

ZEROS = np.zeros(1089)


def frame(sim):
    return sim.compute_frame(ZEROS, ZEROS, 100.0)


def equal(a, b):
    return a["state"]["pos"] == b["state"]["pos"] and np.array_equal(a["state"]["key"], b["state"]["key"])


def numpys_generator(seed):
    generator = np.random.MT19937()
    generator._legacy_seeding(seed)
    return generator


@pytest.mark.parametrize("seed", [0, 1, 5489, 2**32 - 1])
def test_a_seed_is_numpys_legacy_seed(sensor, seed):
    assert equal(Simulator(sensor, seed=seed).random_state, numpys_generator(seed).state)


def test_a_seed_gives_the_same_noise_again(sensor):
    sim = Simulator(sensor, seed=5)
    first, second = frame(sim), frame(sim)
    assert not np.array_equal(first, second)
    sim.seed(5)
    assert np.array_equal(frame(sim), first)
    assert np.array_equal(frame(sim), second)


def test_simulators_do_not_share_a_generator(sensor):
    one, other = Simulator(sensor, seed=1), Simulator(sensor, seed=2)
    mixed = [frame(one), frame(other), frame(one), frame(other)]
    one, other = Simulator(sensor, seed=1), Simulator(sensor, seed=2)
    assert np.array_equal([frame(one), frame(one), frame(other), frame(other)], [mixed[k] for k in (0, 2, 1, 3)])


def test_without_a_seed_noise_differs(sensor):
    assert not np.array_equal(frame(Simulator(sensor)), frame(Simulator(sensor)))


@pytest.mark.parametrize("seed, error", [(-1, ValueError), (2**32, ValueError), (1.5, TypeError), ("1", TypeError)])
def test_other_seeds_are_refused(sensor, sim, seed, error):
    with pytest.raises(error, match="seed: expected"):
        Simulator(sensor, seed=seed)
    with pytest.raises(error, match="seed: expected"):
        sim.seed(seed)


@pytest.mark.parametrize("position", [0, 1, 2, 3, 311, 622, 623, 624])
def test_numpys_state_goes_on_where_numpy_would(sim, position):
    generator = numpys_generator(99)
    generator.random_raw(624 if position == 0 else position)  # at 624 numpy is before the next block
    state = generator.state
    state["state"]["pos"] = position
    sim.random_state = state
    assert equal(sim.random_state, state)
    generator.state = state

    frame(sim)
    draws = 2 * sum(int(r["x_up"] - r["x_low"]) * int(r["y_up"] - r["y_low"]) for r in sim.rois)
    drawn = generator.random_raw(draws)
    low, high = drawn[:2].astype(float)
    assert sim.frame_values[sim.rois[0]["y_low"], sim.rois[0]["x_low"]] == pytest.approx(
        200.0 * (low + high * 2.0**32) / 2.0**64 - 100.0, abs=1.0
    )
    generator.state = state
    generator.random_raw(draws)
    twin = np.random.MT19937()
    twin.state = sim.random_state
    assert np.array_equal(twin.random_raw(2000), generator.random_raw(2000))


def test_a_state_is_a_copy(sim):
    state = sim.random_state
    before = frame(sim)
    sim.random_state = state
    assert np.array_equal(frame(sim), before)
    state["state"]["key"][:] = 0
    sim.seed(1)
    assert np.array_equal(frame(sim), before)


def test_the_form_is_that_of_numpy(sim):
    ours, numpys = sim.random_state, np.random.MT19937(1).state
    assert ours.keys() == numpys.keys() and ours["state"].keys() == numpys["state"].keys()
    assert ours["bit_generator"] == numpys["bit_generator"]
    assert ours["state"]["key"].dtype == numpys["state"]["key"].dtype
    assert isinstance(ours["state"]["pos"], int)


def state_with(**members):
    state = np.random.MT19937(1).state
    state["state"].update(members)
    return state


KEY = np.zeros(624, np.uint32)
INVALID = {
    "none": None,
    "a number": 5,
    "empty": {},
    "no state": {"bit_generator": "MT19937"},
    "another state": {"bit_generator": "MT19937", "state": 3},
    "another generator": np.random.PCG64(1).state,
    "another name": {**np.random.MT19937(1).state, "bit_generator": 19937},
    "no key": {"bit_generator": "MT19937", "state": {"pos": 1}},
    "no position": {"bit_generator": "MT19937", "state": {"key": KEY}},
    "short key": state_with(key=KEY[:-1]),
    "square key": state_with(key=KEY.reshape(26, 24)),
    "fractions": state_with(key=np.full(624, 0.5)),
    "negative words": state_with(key=np.full(624, -1)),
    "long words": state_with(key=np.full(624, 2**32)),
    "words": state_with(key="MT19937"),
    "ragged": state_with(key=[[1], [1, 2]]),
    "position below": state_with(pos=-1),
    "position above": state_with(pos=625),
    "huge position": state_with(pos=2**70),
    "position in words": state_with(pos="1"),
    "no whole position": state_with(pos=1.5),
}


@pytest.mark.parametrize("name", INVALID)
def test_another_state_is_refused_and_changes_nothing(sim, name):
    before = sim.random_state
    with pytest.raises(ValueError, match="random_state: expected .*MT19937.*, found"):
        sim.random_state = INVALID[name]
    assert equal(sim.random_state, before)


def test_a_key_may_be_any_whole_numbers(sim):
    state = sim.random_state
    expected = frame(sim)
    sim.random_state = state_with(key=state["state"]["key"].tolist(), pos=np.int64(state["state"]["pos"]))
    assert np.array_equal(frame(sim), expected)


@pytest.mark.parametrize("copied", [lambda sim: pickle.loads(pickle.dumps(sim)), copy.copy, copy.deepcopy])
def test_a_copy_goes_on_with_the_same_noise(sim, copied):
    frame(sim)
    again = copied(sim)
    assert again.folder == sim.folder
    assert not again.frame.any()
    assert equal(again.random_state, sim.random_state)
    assert np.array_equal(frame(again), frame(sim))


def test_noise_does_not_depend_on_the_thread(sensor):
    expected = Simulator(sensor, seed=8)
    sim = Simulator(sensor, seed=8)
    for _ in range(4):
        with concurrent.futures.ThreadPoolExecutor(1) as thread:
            assert np.array_equal(thread.submit(frame, sim).result(), frame(expected))


def test_who_sees_the_frames_of_a_score_or_loop_does_not_see_the_noise_change(sim):
    before = sim.random_state
    score(sim, [CentreOfGravity()], frames=1)
    run_loop(sim, frames=10)
    assert equal(sim.random_state, before)
