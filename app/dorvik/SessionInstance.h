#pragma once

#include <memory>

class AppDelegate;
class DVAppHost;
class DorvikBusService;

// The windowed program's place on the session bus ("net.dorvik.Dorvik"): one running instance
// per user session, and the status, token and held-interface answers for dorvik-cli.
struct SessionInstance
{
    // Filled in once built; a call before that gets an empty answer (or a raise later).
    DVAppHost *host = nullptr;
    AppDelegate *delegate = nullptr;
    std::unique_ptr<DorvikBusService> service;
    bool raisePending = false;

    SessionInstance();
    ~SessionInstance();
    // Takes the bus name. False when another instance owns it: that one was asked to bring its
    // window to the front and this start should end. Without a session bus: true (alone).
    bool claim();
    // The window exists now: a raise asked for meanwhile happens.
    void windowReady();
};
