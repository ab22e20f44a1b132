-- WirePlumber 0.4: the device behind the "EQ/DRC speaker" sink (eqdrc-speaker.conf) and
-- only that one. Applications play through the sink rather than to the device itself,
-- which keeps its name with a note and drops below the sink in priority; every other
-- device keeps WirePlumber's defaults.
--   ~/.config/wireplumber/main.lua.d/51-eqdrc-speaker.lua   (DEVICE as in eqdrc-speaker.conf)
table.insert(alsa_monitor.rules, {
  matches = {
    {
      { "node.name", "equals", "DEVICE" },
    },
  },
  apply_properties = {
    ["node.description"] = "Speaker (direct, without EQ/DRC)",
    ["priority.session"] = 100,
    ["priority.driver"] = 100,
  },
})
