# SPDX-License-Identifier: MIT
"""Agents run without the interpreter lock: another Python thread makes progress during a long go()."""
import threading

import cv2
import numpy as np

import ombrel
from conftest import noise


def test_a_second_thread_runs_python_while_an_agent_runs():
    # A grey erosion of a large image by a disc keeps one go() busy for a long while (tens of milliseconds).
    disc = cv2.getStructuringElement(cv2.MORPH_ELLIPSE, (25, 25))
    agent = ombrel.GrayMorphAgent(noise(2048, 2048, seed=21), op="erode", element=disc)
    state = {"in_go": False, "done": False}
    started = threading.Event()

    def work():
        started.set()
        try:
            state["in_go"] = True
            agent.go()
        finally:
            state["in_go"] = False
            state["done"] = True

    worker = threading.Thread(target=work)
    seen_during_go = 0
    worker.start()
    started.wait()
    while not state["done"]:
        # While the worker is inside go() it holds no lock, so this loop runs; were the lock held, it could not
        # run at all until go() returned (and only a handful of iterations fit before "in_go" is cleared).
        if state["in_go"]:
            seen_during_go += 1
    worker.join()
    assert np.array_equal(agent.output[1000:1010, 1000:1010],
                          cv2.erode(agent.image.array, disc)[1000:1010, 1000:1010])
    assert seen_during_go > 10000


def test_agents_on_separate_threads_give_the_same_results_as_in_turn():
    images = [noise(512, 384, seed=s) for s in (1, 2, 3, 4)]
    expected = [ombrel.histogram(i).bins for i in images]
    results = [None] * len(images)

    def run(k):
        agent = ombrel.HistogramAgent(images[k])
        for _ in range(20):
            agent.go()
        results[k] = np.array(agent.bins)

    threads = [threading.Thread(target=run, args=(k,)) for k in range(len(images))]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert all(np.array_equal(r, e) for r, e in zip(results, expected))
