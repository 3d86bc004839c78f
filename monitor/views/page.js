// SPDX-License-Identifier: Apache-2.0
"use strict";
// A page that reloads itself ends at the browser's error page as soon as its file is missing. So this one stays and takes
// the new text from a copy: over HTTP from fetch(), which browsers refuse for a file, and from a file by a hidden frame.
// It also counts the ages on, and says when the monitor has stopped.
(() => {
  const isFile = location.protocol === "file:";
  if (parent !== window && location.search.startsWith("?next=")) {
    // This is the copy in the frame. Over HTTP any site could frame it, so it only says that it is there.
    addEventListener("DOMContentLoaded", () =>
      parent.postMessage(isFile ? document.documentElement.outerHTML : "", "*"));
    return;
  }

  const find = (selector, from = document) => from.querySelector(selector);
  const seconds = () => performance.now() / 1000;
  let frame;
  let ageThen = 0;
  let then = seconds();
  let title = "";

  const duration = s =>
    s < 120 ? s + " s" :
    s < 7200 ? Math.floor(s / 60) + " min" :
    s < 172800 ? Math.floor(s / 3600) + " h" :
    Math.floor(s / 86400) + " days";
  const ago = s => s < 2 ? "just now" : duration(s) + " ago";

  const tick = () => {
    const main = find("main");
    const age = Math.floor(ageThen + seconds() - then);
    for (const e of document.querySelectorAll("time[data-age]")) {
      e.dataset.at ??= e.textContent;
      e.textContent = ago(age + Number(e.dataset.age)) + ", " + e.dataset.at;
    }
    for (const e of document.querySelectorAll("[data-lasts]")) {
      e.textContent = duration(age + Number(e.dataset.lasts));
    }
    const isOld = age > 3 * main.dataset.interval;
    find("#stopped time").textContent = main.dataset.written + " (" + ago(age) + ")";
    find("#stopped").hidden = !isOld;
    document.body.classList.toggle("old", isOld);
    document.title = isOld ? "Monitor stopped, nothing new since " + main.dataset.written : title;
  };

  // `clock` is the time of the computer that writes the page, in milliseconds.
  const setAge = clock => {
    ageThen = Math.max(0, clock / 1000 - find("main").dataset.time);
    then = seconds();
  };

  const take = (text, clock) => {
    const next = new DOMParser().parseFromString(text, "text/html");
    if (!find("main[data-time]", next)) {
      return;
    }
    if (find("script", next)?.text !== find("script").text) {
      location.reload();  // the monitor was upgraded
      return;
    }
    if (find("main", next).dataset.time !== find("main").dataset.time) {
      for (const selector of ["header p", "main"]) {
        find(selector).replaceWith(find(selector, next));
      }
      if (title !== next.title) {  // screen readers say it again
        find("h1").textContent = find("h1", next).textContent;
      }
      find("style").textContent = find("style", next).textContent;
      title = next.title;
    }
    setAge(clock);
    tick();
  };

  const load = () => {
    if (isFile) {
      frame?.remove();
      frame = document.createElement("iframe");
      frame.hidden = true;
      frame.sandbox = "allow-scripts";
      frame.src = location.pathname + "?next=" + Date.now();
      document.body.append(frame);
      return;
    }
    fetch(location.href, {cache: "no-store"})
      .then(async reply =>
        reply.ok && take(await reply.text(), Date.parse(reply.headers.get("Date")) || Date.now()))
      .catch(() => {});
  };
  addEventListener("message", event => {
    if (frame && event.source === frame.contentWindow) {
      take(String(event.data), Date.now());
    }
  });

  addEventListener("DOMContentLoaded", () => {
    title = document.title;
    if (isFile) {
      setAge(Date.now());
    } else {
      load();  // its answer has the server's clock
    }
    tick();
    setInterval(tick, 1000);
    const loadAgain = () => {
      load();
      setTimeout(loadAgain, find("main").dataset.reload * 1000);
    };
    setTimeout(loadAgain, find("main").dataset.reload * 1000);
  });
  addEventListener("visibilitychange", () => document.hidden || load());
})();
